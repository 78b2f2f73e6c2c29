#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Exits non-zero on any failure.
# Usage: scripts/test.sh [PRESET]   (default: release; "asan" runs the sanitizer build)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
preset=${1:-release}
scripts/build.sh "$preset"
ctest --preset "$preset"
