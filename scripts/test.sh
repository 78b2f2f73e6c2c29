#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Exits non-zero on any failure.
#
# Usage: scripts/test.sh          the release suite, the AddressSanitizer + UndefinedBehaviorSanitizer
#                                 suite, and a short run of every fuzz target (what CI runs)
#        scripts/test.sh PRESET   one preset's suite only: release, debug or asan
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

suite() {
    local preset=$1 started=$SECONDS
    echo "== $preset: build"
    scripts/build.sh "$preset"
    echo "== $preset: tests"
    ctest --preset "$preset" -j "$(nproc)"
    echo "== $preset: done in $((SECONDS - started)) s"
}

if [[ $# -gt 0 ]]; then
    suite "$1"
    exit 0
fi

suite release
suite asan
if [[ -x scripts/fuzz.sh ]]; then
    # About ten seconds a target: enough to replay the corpus and take a few thousand new inputs.
    echo "== fuzz"
    scripts/fuzz.sh "${KAVRI_FUZZ_SECONDS:-10}"
fi
