#!/usr/bin/env bash
# Builds the fuzz targets with clang's libFuzzer (the "fuzz" preset) and runs each for SECONDS (default
# 10) on a copy of its seed corpus, with its dictionary. Exits non-zero when a target finds a crash, and
# says where the reproducer is: copy it into tests/fuzz/crashes/<target>/ once fixed, so that the
# ordinary test run replays it from then on.
# Usage: scripts/fuzz.sh [SECONDS] [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
shift || true
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=(side_file vix_header file_name remembered pixel)
command -v clang++-14 >/dev/null || { echo "fuzz: clang++-14 is missing (scripts/setup.sh installs it)" >&2; exit 1; }

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

work=build/fuzz/runs
failed=0
for t in "${targets[@]}"; do
    corpus=$work/corpus/$t
    crashes=$work/crashes/$t
    mkdir -p "$corpus" "$crashes"
    cp -n tests/fuzz/corpus/"$t"/* "$corpus"/ 2>/dev/null || true
    log=$work/$t.log
    echo "== fuzz $t: ${seconds} s"
    if ! build/fuzz/tests/fuzz/fuzz_"$t" "$corpus" -dict=tests/fuzz/"$t".dict -max_total_time="$seconds" \
        -max_len=4096 -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$crashes"/ \
        >"$log" 2>&1; then
        echo "fuzz $t: FOUND A CRASH; reproducer in $crashes/ (log: $log)" >&2
        tail -n 40 "$log" >&2
        failed=1
    else
        grep -E '^stat::number_of_executed_units|^#[0-9]+ +DONE' "$log" | tail -n 2 || true
    fi
done
exit $failed
