#!/bin/sh
# Cross-checks the colour readings against ffmpeg's conversion to rgb24: a test picture is made in each
# layout, matrix and range by ffmpeg, converted by ffmpeg, and rendered by kavri-cli with the same
# reading. ffmpeg first brings the chroma to 4:4:4 by repeating samples ("neighbor"), as our nearest
# reading does, then converts with accurate rounding; left to itself, its scaler interpolates the chroma
# of 10-bit and accurately rounded input (up to 88 levels apart at the test picture's sharp edges). prints the share of channel values within 2 levels and the
# largest difference. Needs ffmpeg and python3 (neither is a build dependency).
# usage: scripts/crosscheck-colour.sh [BUILD_DIR]
set -eu
build=${1:-build/release}
cli="$build/src/cli/kavri-cli"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
w=640
h=360
fail=0
# ffmpeg-format  kavri-keyword  bits  ffmpeg-matrix  kavri-matrix  range(tv|pc)
while read -r fmt kw bits fm km range; do
    [ -n "$fmt" ] || continue
    name="${fmt}_${fm}_${range}"
    src="$work/$name.yuv"
    kr=limited
    [ "$range" = pc ] && kr=full
    ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=${w}x${h}:rate=25" -frames:v 1 \
        -vf "scale=out_color_matrix=$fm:out_range=$range,format=$fmt" -f rawvideo -y "$src"
    full=$(echo "$fmt" | sed 's/yuv42[02]p/yuv444p/; s/^p010le$/yuv444p10le/')
    ffmpeg -nostdin -v error -f rawvideo -pix_fmt "$fmt" -s "${w}x${h}" -i "$src" -vf \
        "scale=flags=neighbor,format=$full,scale=in_color_matrix=$fm:in_range=$range:flags=accurate_rnd,format=rgb24" \
        -f rawvideo -y "$work/$name.ref"
    "$cli" render -f "$kw" -w $w -h $h --bits "$bits" --matrix "$km" --range "$kr" --frame 0 --no-remembered \
        -o "$work/$name.png" "$src" >/dev/null
    ffmpeg -nostdin -v error -i "$work/$name.png" -pix_fmt rgb24 -f rawvideo -y "$work/$name.rgb"
    line=$(python3 - "$work/$name.rgb" "$work/$name.ref" <<'PY'
import sys
a = open(sys.argv[1], 'rb').read()
b = open(sys.argv[2], 'rb').read()
n = min(len(a), len(b))
worst = 0
within = 0
for x, y in zip(a[:n], b[:n]):
    d = abs(x - y)
    worst = max(worst, d)
    within += d <= 2
share = 100.0 * within / n if n else 0.0
print(f"{share:.3f} {worst} {'ok' if len(a) == len(b) and share >= 99.9 else 'FAIL'}")
PY
)
    set -- $line
    echo "$name: $1 % within 2 levels, largest difference $2 ($3)"
    [ "$3" = ok ] || fail=1
done <<'TABLE'
yuv420p yuv420 8 bt470bg bt601 tv
yuv420p yuv420 8 bt709 bt709 tv
yuv420p yuv420 8 bt2020nc bt2020 tv
yuv420p yuv420 8 bt709 bt709 pc
yuv422p yuv422 8 bt2020nc bt2020 tv
yuv444p yuv444 8 bt2020nc bt2020 tv
yuv444p yuv444 8 bt470bg bt601 pc
yuv420p10le yuv420 10 bt470bg bt601 tv
yuv420p10le yuv420 10 bt709 bt709 tv
yuv420p10le yuv420 10 bt2020nc bt2020 tv
yuv420p10le yuv420 10 bt2020nc bt2020 pc
yuv422p10le yuv422 10 bt709 bt709 tv
yuv444p10le yuv444 10 bt2020nc bt2020 tv
yuv444p10le yuv444 10 bt709 bt709 pc
yuv420p10le yuv420 10 smpte240m smpte240m tv
p010le p010 10 bt2020nc bt2020 tv
TABLE
exit $fail
