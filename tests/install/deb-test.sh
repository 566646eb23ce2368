#!/usr/bin/env bash
# Builds the Debian package from the build tree (as "cpack -G DEB" does, into a temporary
# folder), lists its contents and dependencies, and checks that it holds what a user installs.
# Usage: deb-test.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work" >/dev/null
deb=$(find "$work" -maxdepth 1 -name 'kiv_*.deb')
[ -n "$deb" ] || { echo "no kiv_*.deb written" >&2; exit 1; }
contents=$(dpkg-deb -c "$deb" | awk '{print $6}')
depends=$(dpkg-deb -f "$deb" Depends)
echo "$contents"
echo "Depends: $depends"

for wanted in ./usr/bin/kiv /kiv/plugins/libPelrixDataFile.so /libDataCore.so.0 /libKivExport.so.0 \
    /cmake/Kiv/KivConfig.cmake /pkgconfig/kiv.pc /man1/kiv.1 \
    ./usr/include/Kiv/DataCore/DataFile.h ./usr/include/Pelrix/PelrixDataFile.h; do
    grep -qF -- "$wanted" <<<"$contents" || { echo "the package lacks $wanted" >&2; exit 1; }
done
for wanted in python3 python3-numpy libexpat1 libudunits2-0 libc6; do
    grep -qE "(^|, )$wanted( |,|$)" <<<"$depends" || { echo "no dependency on $wanted" >&2; exit 1; }
done
