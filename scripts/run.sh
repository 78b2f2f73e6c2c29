#!/usr/bin/env bash
# Installs what is missing, builds, and starts the player. Arguments go to kavri unchanged;
# with none it opens a generated demo sequence.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh release
bin=build/release/src/app/kavri
cli=build/release/src/cli/kavri-cli
if [[ $# -eq 0 ]]; then
    demo=build/demo/kavri_demo_640x360_30hz_8bit_P420.yuv
    if [[ ! -s $demo ]] && "$cli" synth --help >/dev/null 2>&1; then
        mkdir -p build/demo
        "$cli" synth -f yuv420 --size 640x360 --rate 30 --frames 150 -o "$demo" || rm -f "$demo"
    fi
    if [[ -s $demo ]]; then exec "$bin" -p "$demo"; fi
    exec "$bin"
fi
exec "$bin" "$@"
