#!/usr/bin/env bash
# Installs the Debian 12 packages that building, running and testing need.
# Costs nothing when everything is present. Works as root, or as a user with
# sudo.
set -euo pipefail

packages=(
    build-essential cmake ninja-build ccache pkg-config
    qtbase5-dev libqt5svg5
    xvfb xauth libgl1-mesa-dri libglx-mesa0 fonts-dejavu-core
    clang libclang-rt-14-dev
    imagemagick xdotool
    libpcap-dev tshark lua5.2
    # programs of other projects that the tests read the exported clouds with
    pcl-tools python3-open3d python3-numpy cloudcompare
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    sudo=()
elif command -v sudo >/dev/null 2>&1; then
    sudo=(sudo)
else
    echo "error: missing packages (${missing[*]}) and neither root nor sudo" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
