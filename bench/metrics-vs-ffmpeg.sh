#!/bin/sh
# Times `kavri-cli metrics --metrics psnr,ssim` against ffmpeg's psnr and ssim filters on the same pair of
# 1080p 8-bit 4:2:0 files (two takes of the moving test pattern at different rates, so every frame
# differs), best wall time of three runs each, files read from the page cache. ffmpeg is a baseline only:
# nothing in the build or the tests needs it.
# usage: bench/metrics-vs-ffmpeg.sh [BUILD_DIR] [FRAMES]
set -eu
build=${1:-build/release}
frames=${2:-120}
cli="$build/src/cli/kavri-cli"
command -v ffmpeg >/dev/null || { echo "ffmpeg is not installed" >&2; exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
"$cli" synth -f yuv420 --size 1920x1080 --frames "$frames" --rate 25 -o "$dir/a.yuv" >/dev/null
"$cli" synth -f yuv420 --size 1920x1080 --frames "$frames" --rate 24 -o "$dir/b.yuv" >/dev/null
cat "$dir/a.yuv" "$dir/b.yuv" >/dev/null

best() { # best wall time in seconds of three runs of "$@"
    b=
    for _ in 1 2 3; do
        s=$(date +%s.%N)
        "$@" >/dev/null 2>&1
        e=$(date +%s.%N)
        t=$(echo "$e - $s" | bc -l)
        if [ -z "$b" ] || [ "$(echo "$t < $b" | bc -l)" = 1 ]; then b=$t; fi
    done
    echo "$b"
}

raw="-f rawvideo -pix_fmt yuv420p -s 1920x1080"
# shellcheck disable=SC2086
f=$(best ffmpeg -nostdin $raw -i "$dir/a.yuv" $raw -i "$dir/b.yuv" -lavfi "[0][1]psnr;[0][1]ssim" -f null -)
k=$(best "$cli" metrics -w 1920 -h 1080 -f yuv420 --no-remembered --metrics psnr,ssim "$dir/a.yuv" "$dir/b.yuv")
echo "frames: $frames (1920x1080 8-bit 4:2:0)"
printf 'ffmpeg psnr+ssim:        %.3f s  %.2f ms/frame\n' "$f" "$(echo "$f * 1000 / $frames" | bc -l)"
printf 'kavri-cli metrics:       %.3f s  %.2f ms/frame\n' "$k" "$(echo "$k * 1000 / $frames" | bc -l)"
printf 'kavri-cli is %.1fx faster\n' "$(echo "$f / $k" | bc -l)"
