#!/usr/bin/env bash
# Builds the Debian packages from the sources as a distribution would (dpkg-buildpackage in a
# fresh copy of the files git tracks or would track, so no build output), runs lintian on them,
# installs them with apt into a throwaway Debian system, uses them there as a user would, purges
# them and checks that nothing of them is left.
#
# Usage: debian-test.sh SOURCE_DIR [OUTPUT_DIR]
#   OUTPUT_DIR keeps the built packages (default: a temporary folder, removed at the end).
#
# The throwaway system is made by mmdebstrap from the machine's own apt sources. Where it
# cannot be made (no mmdebstrap, or no mirror to fetch from), the same steps run against this
# machine itself, which must then be one where installing and purging packages is fine (a CI
# container); KIV_DEBIAN_TEST_ON_HOST=1 chooses that route outright.
set -euo pipefail
source_dir=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
out=${2:-$work/out}
mkdir -p "$out"
out=$(cd "$out" && pwd)

step() { echo "== $* ==" >&2; }

step "copying the sources of $source_dir"
mkdir "$work/kiv"
(cd "$source_dir" && git ls-files -z --cached --others --exclude-standard |
    tar --null -T - --ignore-failed-read -cf - 2>/dev/null) | tar -xf - -C "$work/kiv"

step "dpkg-buildpackage -us -uc -b"
if ! (cd "$work/kiv" && dpkg-buildpackage -us -uc -b -j"$(nproc)") >"$work/build.log" 2>&1; then
    tail -n 40 "$work/build.log" >&2
    echo "debian-test.sh: dpkg-buildpackage failed (log above)" >&2
    exit 1
fi
cp "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out/"
changes=$(ls "$out"/*.changes)
ls "$out"

step "lintian --fail-on error,warning"
lintian --fail-on error,warning --display-level '>=warning' "$changes"
echo "lintian: no errors or warnings"

# Each package holds what the layout promises, before anything is installed.
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
contents() { dpkg-deb -c "$out/$1"_*.deb | awk '{print $6}'; }
expect() {
    local package=$1
    shift
    local listing
    listing=$(contents "$package")
    for path in "$@"; do
        grep -qxF -- "$path" <<<"$listing" || { echo "$package lacks $path" >&2; exit 1; }
    done
}
expect libkiv0 "./usr/lib/$multiarch/libDataCore.so.0" "./usr/lib/$multiarch/libKivCore.so.0" \
    "./usr/lib/$multiarch/kiv/plugins/libPelrixDataFile.so" \
    "./usr/lib/$multiarch/kiv/writers/libKivExportTiff.so" \
    "./usr/lib/$multiarch/kiv/writers/libKivExportPng.so"
expect libkiv-dev "./usr/lib/$multiarch/libDataCore.so" "./usr/include/Kiv/DataCore/DataFile.h" \
    "./usr/lib/$multiarch/cmake/Kiv/KivConfig.cmake" "./usr/lib/$multiarch/pkgconfig/kiv.pc"
expect kiv ./usr/bin/kiv ./usr/share/man/man1/kiv.1.gz
contents python3-kiv | grep -q '^\./usr/lib/python3/dist-packages/kiv\..*\.so$' ||
    { echo "python3-kiv lacks the module" >&2; exit 1; }
ls "$out"/*-dbgsym_*.deb >/dev/null || { echo "no -dbgsym packages" >&2; exit 1; }

# What runs inside the system the packages go into: the debs are in /tmp/debs, the sources'
# samples and consumer project in /tmp/kiv.
cat >"$work/use.sh" <<'EOF'
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
cd /tmp
apt-get install -y -qq --no-install-recommends /tmp/debs/*.deb >/dev/null
packages=$(for deb in /tmp/debs/*.deb; do dpkg-deb -f "$deb" Package; done)
echo "installed: $(echo $packages)"
for package in $packages; do dpkg -L "$package"; done | sort -u >/tmp/owned

info=$(kiv info /tmp/kiv/samples/topography_128.flt)
grep -q "128 x 128 samples" <<<"$info" || { echo "kiv info: $info" >&2; exit 1; }
echo "kiv info: ok"
for format in tiff png; do
    kiv export --to "$format" -o "/tmp/sample.$format" /tmp/kiv/samples/topography_128.flt
    [ -s "/tmp/sample.$format" ] || { echo "kiv export --to $format wrote nothing" >&2; exit 1; }
done
rm -f /tmp/sample.tiff /tmp/sample.png
man -w kiv
/usr/bin/python3 -c "import kiv; f = kiv.open('/tmp/kiv/samples/topography_128.flt'); assert f.image.shape == (128, 128); print('import kiv:', kiv.__version__)"
cmake -S /tmp/kiv/tests/install/consumer -B /tmp/consumer -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build /tmp/consumer >/dev/null
/tmp/consumer/kiv-consumer /tmp/kiv/samples/topography_128.flt
pkg-config --modversion kiv
[ "$(pkg-config --variable=prefix kiv)" = /usr ] || { echo "kiv.pc prefix" >&2; exit 1; }

apt-get purge -y -qq $packages >/dev/null
left=""
while read -r path; do
    [ "$path" != /. ] || continue
    # Folders the packages share with the rest of the system stay.
    if [ -e "$path" ] && ! [ -d "$path" ]; then left="$left $path"; fi
    if [ -d "$path" ] && ! dpkg -S "$path" >/dev/null 2>&1; then left="$left $path"; fi
done </tmp/owned
for package in $packages; do
    ls /var/lib/dpkg/info/"$package".* /var/lib/dpkg/info/"$package":*.* 2>/dev/null | grep -q . &&
        left="$left /var/lib/dpkg/info/$package.*"
done
[ -z "$left" ] || { echo "left behind after the purge:$left" >&2; exit 1; }
echo "purged: nothing left behind"
EOF

mirror_reachable() {
    apt-get -qq update >/dev/null 2>&1 && apt-get -qq --print-uris download base-files >/dev/null 2>&1
}
if [ -z "${KIV_DEBIAN_TEST_ON_HOST:-}" ] && command -v mmdebstrap >/dev/null && mirror_reachable; then
    step "installing, using and purging in a throwaway Debian system (mmdebstrap)"
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p "$work/share/kiv/tests/install"
    cp -r "$source_dir/samples" "$work/share/kiv/"
    cp -r "$source_dir/tests/install/consumer" "$work/share/kiv/tests/install/"
    mmdebstrap --quiet --variant=apt --include=ca-certificates,man-db,cmake,g++,make,pkg-config \
        --customize-hook="mkdir -p \"\$1/tmp/debs\"" \
        --customize-hook="copy-in $(echo "$out"/*.deb) /tmp/debs" \
        --customize-hook="copy-in $work/share/kiv /tmp" \
        --customize-hook="copy-in $work/use.sh /tmp" \
        --customize-hook="chroot \"\$1\" bash /tmp/use.sh" \
        "$suite" /dev/null
else
    step "installing, using and purging on this machine (no throwaway system could be made)"
    for package in $(for deb in "$out"/*.deb; do dpkg-deb -f "$deb" Package; done); do
        if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed"; then
            echo "debian-test.sh: $package is installed here already; not touching it" >&2
            exit 1
        fi
    done
    rm -rf /tmp/debs /tmp/kiv /tmp/consumer
    mkdir -p /tmp/debs /tmp/kiv/tests/install
    cp "$out"/*.deb /tmp/debs/
    cp -r "$source_dir/samples" /tmp/kiv/
    cp -r "$source_dir/tests/install/consumer" /tmp/kiv/tests/install/
    status=0
    bash "$work/use.sh" || status=$?
    rm -rf /tmp/debs /tmp/kiv /tmp/consumer /tmp/owned
    exit "$status"
fi
