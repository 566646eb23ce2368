#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, builds the consumer project against it with
# find_package(Kiv) and opens a sample with it; then checks kiv, its manual page, kiv.pc and,
# when the build has the Python module, "import kiv" from that prefix.
# Usage: install-test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
# Nothing of the build tree may be needed: the modules must come from the prefix.
unset KIV_PLUGIN_PATH

cmake -S "$source/tests/install/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/consumer" >/dev/null
out=$("$work/consumer/kiv-consumer" "$source/samples/topography_128.flt")
echo "$out"
[ "$out" = "Pelrix Data File: 128 x 128" ]

"$prefix/bin/kiv" --version | grep -qx "kiv [0-9.]*"
"$prefix/bin/kiv" formats | grep -q "^Pelrix Data File:"
find "$prefix" -name kiv.1 | grep -q man1
# The picture writers are private modules, loaded from the installed tree when first used.
for format in tiff png; do
    "$prefix/bin/kiv" export --to "$format" -o "$work/sample.$format" "$source/samples/topography_128.flt"
    [ -s "$work/sample.$format" ] || { echo "kiv export --to $format wrote nothing" >&2; exit 1; }
done
for header in Kiv/Core/HostLong.h Kiv/DataCore/DataFile.h Kiv/Access/FileAccess.h \
    Kiv/Edit/SafeSave.h Pelrix/PelrixDataFile.h; do
    [ -f "$prefix/include/$header" ] || { echo "missing include/$header" >&2; exit 1; }
done
if [ -d "$source/KivExport" ]; then
    [ -d "$prefix/include/Kiv/Export" ] || { echo "missing include/Kiv/Export" >&2; exit 1; }
fi
pc=$(find "$prefix" -name kiv.pc)
PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --libs kiv | grep -q -- "-lDataCore"
# Written at install time for the prefix installed to, not the one the build was configured for.
[ "$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --variable=prefix kiv)" = "$prefix" ] ||
    { echo "kiv.pc names another prefix" >&2; exit 1; }
soname=$(objdump -p "$(find "$prefix" -name 'libDataCore.so.*.*.*')" | awk '/SONAME/ {print $2}')
[ "$soname" = "libDataCore.so.0" ] || { echo "SONAME $soname" >&2; exit 1; }

# The Python module is part of the install once its folder is in the tree.
if [ -f "$source/python/CMakeLists.txt" ]; then
    module=$(find "$prefix" -name 'kiv.cpython-*.so')
    [ -n "$module" ] || { echo "the Python module is not installed" >&2; exit 1; }
    python_dir=$(dirname "$module")
    version=$(PYTHONPATH=$python_dir /usr/bin/python3 -c "import kiv; print(kiv.__version__)")
    [ "$version" = "$("$prefix/bin/kiv" --version | cut -d' ' -f2)" ] ||
        { echo "kiv.__version__ $version is not kiv's" >&2; exit 1; }
    echo "import kiv: ok ($version)"
fi
