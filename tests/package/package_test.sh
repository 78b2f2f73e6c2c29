#!/usr/bin/env bash
# Builds the Debian package from what the build tree holds (cpack only installs the built files: nothing is
# compiled here), unpacks it into a scratch root with dpkg -x and checks its fields, its file list, the
# desktop files, and that the programs inside start.
# Usage: package_test.sh BUILD_DIR VERSION CPACK
# Exit status 77 (skipped) where the Debian tools are missing.
set -euo pipefail
build=$1 version=$2 cpack=$3

for tool in dpkg-deb dpkg-shlibdeps dpkg; do
    if ! command -v "$tool" >/dev/null; then
        echo "SKIP: $tool is missing (scripts/setup.sh installs dpkg-dev); the package cannot be built here"
        exit 77
    fi
done

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

if ! "$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/out" >"$scratch/cpack.log" 2>&1; then
    cat "$scratch/cpack.log" >&2
    fail "cpack could not build the package"
fi
arch=$(dpkg --print-architecture)
deb=$scratch/out/kavri_${version}_${arch}.deb
[[ -f $deb ]] || fail "no $(basename "$deb"); cpack wrote: $(ls "$scratch/out")"

# Control fields; the library dependencies must have been computed from the binaries.
[[ $(dpkg-deb -f "$deb" Package) == kavri ]] || fail "package name"
[[ $(dpkg-deb -f "$deb" Version) == "$version" ]] || fail "version $(dpkg-deb -f "$deb" Version), not $version"
[[ $(dpkg-deb -f "$deb" Architecture) == "$arch" ]] || fail "architecture"
depends=$(dpkg-deb -f "$deb" Depends)
for d in libc6 libqt6core6 libqt6gui6 libqt6widgets6 libstdc++6 qt6-qpa-plugins; do
    [[ $depends == *"$d"* ]] || fail "Depends lacks $d: $depends"
done

# Exactly these files, nothing missing and nothing stray.
expected=(
    ./usr/bin/kavri
    ./usr/bin/kavri-cli
    ./usr/share/applications/kavri.desktop
    ./usr/share/icons/hicolor/scalable/apps/kavri.svg
    ./usr/share/man/man1/kavri-cli.1.gz
    ./usr/share/man/man1/kavri.1.gz
    ./usr/share/metainfo/io.kavri.Kavri.metainfo.xml
    ./usr/share/mime/packages/kavri.xml
)
for size in 16 22 24 32 48 64 128 256; do expected+=("./usr/share/icons/hicolor/${size}x${size}/apps/kavri.png"); done
actual=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $6 }' | sort)
wanted=$(printf '%s\n' "${expected[@]}" | sort)
if [[ $actual != "$wanted" ]]; then
    diff <(echo "$wanted") <(echo "$actual") >&2 || true
    fail "the package's file list differs (< expected, > packaged)"
fi

root=$scratch/root
dpkg -x "$deb" "$root"

# The programs start from the unpacked tree with the system's Qt (no library path needed).
if ldd "$root/usr/bin/kavri" "$root/usr/bin/kavri-cli" | grep -q 'not found'; then
    ldd "$root/usr/bin/kavri" "$root/usr/bin/kavri-cli" >&2
    fail "a library is missing"
fi
[[ $("$root/usr/bin/kavri-cli" --version) == "kavri-cli $version" ]] || fail "kavri-cli --version"
[[ $("$root/usr/bin/kavri" --version) == "kavri $version" ]] || fail "kavri --version"

# The icons are pictures of the size their folder names.
# (The PNG header's width and height, big-endian, at bytes 16..23.)
for size in 16 22 24 32 48 64 128 256; do
    read -r w1 w2 w3 w4 h1 h2 h3 h4 < <(od -An -tu1 -j16 -N8 "$root/usr/share/icons/hicolor/${size}x${size}/apps/kavri.png")
    (( (w1 << 24 | w2 << 16 | w3 << 8 | w4) == size && (h1 << 24 | h2 << 16 | h3 << 8 | h4) == size )) ||
        fail "the ${size}x${size} icon is not ${size}x${size}"
done

# The manual pages are the programs' help.
for p in kavri kavri-cli; do
    page=$(gzip -dc "$root/usr/share/man/man1/$p.1.gz")
    [[ $page == *".TH $p 1"* ]] || fail "$p.1 has no title line"
    [[ $page == *"$version"* ]] || fail "$p.1 does not name version $version"
done
gzip -dc "$root/usr/share/man/man1/kavri-cli.1.gz" | grep -q 'normalize' || fail "kavri-cli.1 lacks the command list"

# The desktop entry offers the player for every type the MIME file declares.
desktop=$root/usr/share/applications/kavri.desktop
grep -qx 'Exec=kavri %F' "$desktop" || fail "desktop Exec"
grep -qx 'Categories=AudioVideo;Video;Player;' "$desktop" || fail "desktop Categories"
mimes=$(grep -o 'mime-type type="[^"]*"' "$root/usr/share/mime/packages/kavri.xml" | cut -d'"' -f2)
[[ -n $mimes ]] || fail "the MIME file declares no type"
for m in $mimes; do grep -q "^MimeType=.*$m;" "$desktop" || fail "the desktop entry does not list $m"; done
if command -v desktop-file-validate >/dev/null; then desktop-file-validate "$desktop" || fail "desktop-file-validate"; fi

# The MIME file is read as shared-mime-info reads it, and the suffixes land on our types.
if command -v update-mime-database >/dev/null; then
    if ! update-mime-database "$root/usr/share/mime" >"$scratch/mime.log" 2>&1; then
        cat "$scratch/mime.log" >&2
        fail "update-mime-database refused kavri.xml"
    fi
    for g in 'video/x-raw-yuv:\*\.yuv' 'video/x-raw-yuv:\*\.v210' 'video/x-yuv4mpeg:\*\.y4m' 'video/x-raw-rgb:\*\.bgra' \
        'video/x-raw-gray:\*\.bw'; do
        grep -q ":$g\$" "$root/usr/share/mime/globs2" || fail "no glob $g"
    done
else
    echo "note: update-mime-database is missing; the MIME file was not read back"
fi

if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$root/usr/share/metainfo/io.kavri.Kavri.metainfo.xml" >"$scratch/as.log" 2>&1 || {
        cat "$scratch/as.log" >&2
        fail "appstreamcli validate"
    }
else
    echo "note: appstreamcli is missing (package appstream); the metainfo file was not validated"
fi
echo "ok: $(basename "$deb") ($(stat -c %s "$deb") bytes), $(echo "$actual" | wc -l) files; Depends: $depends"
