#!/usr/bin/env bash
# Installs what is missing, builds the release, makes the Debian package and installs it with apt-get
# (which pulls in the libraries it depends on). Usage: scripts/package.sh [--no-install]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/build.sh release
cmake --build build/release --target package
deb=$(ls -t build/release/kavri_*.deb | head -n 1)
echo "package: $deb"
[[ ${1:-} == --no-install ]] && exit 0
sudo=()
if [[ $(id -u) -ne 0 ]]; then sudo=(sudo); fi
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y "./$deb"
