#!/usr/bin/env bash
# Installs the Debian 12 packages Kavri needs to build, test and run — only those that are missing,
# so running it again costs nothing. Needs root (or sudo).
set -euo pipefail

packages=(
    g++ cmake ninja-build pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-qpa-plugins qt6-image-formats-plugins libgl-dev
    qt6-charts-dev libqt6opengl6-dev
    libboost-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    fonts-dejavu-core
    # The fuzz targets (libFuzzer ships with clang's runtime) and the format check of the sources.
    clang-14 libclang-rt-14-dev clang-format-14
    # The Debian package (dpkg-shlibdeps works out its dependencies) and the checks of its desktop files.
    dpkg-dev file appstream desktop-file-utils shared-mime-info
)
# Optional extras: benchmark baselines and the tools used to look at the player under Xvfb.
if [[ "${KAVRI_EXTRAS:-0}" == 1 ]]; then
    packages+=(libyuv-dev libswscale-dev xvfb xauth imagemagick xdotool)
fi

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=()
if [[ $(id -u) -ne 0 ]]; then
    command -v sudo >/dev/null || { echo "setup: run as root or install sudo (missing: ${missing[*]})" >&2; exit 1; }
    sudo=(sudo)
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
