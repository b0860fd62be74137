#!/usr/bin/env bash
# Installs the Debian packages the project needs to build, run and test. Does nothing when they are
# all there already.
set -euo pipefail

PACKAGES=(
    cmake g++ make ccache pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-websockets-dev qt6-connectivity-dev qt6-svg-dev
    qt6-5compat-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools qt6-translations-l10n
    qt6-image-formats-plugins libgl-dev
    xvfb xauth x11-apps openssl fonts-roboto-unhinted fonts-wqy-microhei
    clang-14 libclang-rt-14-dev
    desktop-file-utils appstream dpkg-dev file
    dbus-daemon python3-dbusmock python3
    g++-mingw-w64-x86-64-posix
)

missing=()
for package in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing missing packages: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
        SUDO="sudo"
    else
        echo "error: these packages are missing and this user cannot install them: ${missing[*]}" >&2
        exit 1
    fi
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
