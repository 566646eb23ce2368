#!/usr/bin/env bash
# Installs the Debian 12 packages the build needs; does nothing when all are present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    libboost-dev
    libgtest-dev googletest
    libbenchmark-dev
    libudunits2-dev libudunits2-data
    libexpat1-dev
    libcli11-dev nlohmann-json3-dev
    rapidjson-dev libxxhash-dev
    libtiff-dev libcairo2-dev fonts-dejavu-core
    python3-dev python3-pybind11 python3-numpy python3-pytest python3-pandas
    python3-dask python3-distributed python3-tifffile python3-pil
    help2man
    chromium chromium-driver python3-selenium
    debhelper dh-python devscripts lintian mmdebstrap
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing missing packages: ${missing[*]}" >&2
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
