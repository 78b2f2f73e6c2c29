#!/bin/sh
# Cross-checks the layouts read through pixel descriptors against ffmpeg: each file is converted by ffmpeg
# into the original layout Kavri unpacks it into, and both are rendered by kavri-cli through the same
# conversion; the pictures must be identical. Needs ffmpeg (not a build dependency); prints one line a layout.
# usage: scripts/crosscheck-layouts.sh [BUILD_DIR]
set -eu
build=${1:-build/release}
cli="$build/src/cli/kavri-cli"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
size=352x288
fail=0
# keyword  ffmpeg-format  canonical-ffmpeg-format  canonical-keyword  bits  made-by
while read -r kw fmt canon ckw bits maker; do
    [ -n "$kw" ] || continue
    src="$work/$kw.raw"
    if [ "$maker" = ffmpeg ]; then
        ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=$size:rate=25" -frames:v 2 -pix_fmt "$fmt" -f rawvideo -y "$src"
    else
        "$cli" synth -f "$kw" --size "$size" --frames 2 -o "$src" >/dev/null
    fi
    ffmpeg -nostdin -v error -f rawvideo -pix_fmt "$fmt" -s "$size" -i "$src" -pix_fmt "$canon" -f rawvideo -y "$work/$kw.canon"
    "$cli" render -f "$kw" -w 352 -h 288 --frame 1 --no-remembered -o "$work/$kw.png" "$src" >/dev/null
    "$cli" render -f "$ckw" -w 352 -h 288 --bits "$bits" --frame 1 --no-remembered -o "$work/$kw.ref.png" \
        "$work/$kw.canon" >/dev/null
    if cmp -s "$work/$kw.png" "$work/$kw.ref.png"; then
        echo "$kw: identical to ffmpeg's $fmt -> $canon"
    else
        echo "$kw: DIFFERS from ffmpeg's $fmt -> $canon"
        fail=1
    fi
done <<'TABLE'
nv21 nv21 yuv420p yuv420 8 ffmpeg
nv24 nv24 yuv444p yuv444 8 ffmpeg
nv42 nv42 yuv444p yuv444 8 ffmpeg
p010 p010le yuv420p10le yuv420 10 ffmpeg
p016 p016le yuv420p16le yuv420 16 ffmpeg
p210 p210le yuv422p10le yuv422 10 ffmpeg
p216 p216le yuv422p16le yuv422 16 ffmpeg
p410w p410le yuv444p10le yuv444 10 ffmpeg
p416 p416le yuv444p16le yuv444 16 ffmpeg
y210 y210le yuv422p10le yuv422 10 kavri
rgba64 rgba64le rgba64le rgba 16 ffmpeg
bgra64 bgra64le bgra64le bgra 16 ffmpeg
yuv440 yuv440p yuv444p yuv444 8 ffmpeg
TABLE
exit $fail
