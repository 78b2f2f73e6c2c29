#!/usr/bin/env bash
# Checks that every C++ source of the tree is formatted as .clang-format says (exit 1 and the offending
# files otherwise). Usage: scripts/check-format.sh [--fix]
set -euo pipefail
cd "$(dirname "$0")/.."
# The version pinned by the setup script first: another version formats a few constructs differently.
tool=${CLANG_FORMAT:-$(command -v clang-format-14 || command -v clang-format || echo clang-format)}
# 77 tells CTest the check was skipped, not failed, on a machine without the tool.
command -v "$tool" >/dev/null || { echo "check-format: $tool not found" >&2; exit 77; }
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h' '*.inc' 2>/dev/null || find src tests bench -name '*.cpp' -o -name '*.h' -o -name '*.inc')
if [[ "${1:-}" == "--fix" ]]; then
    "$tool" -i --style=file "${files[@]}"
    exit 0
fi
bad=0
for f in "${files[@]}"; do
    if ! "$tool" --style=file --dry-run --Werror "$f" >/dev/null 2>&1; then
        echo "not formatted: $f"
        bad=1
    fi
done
exit $bad
