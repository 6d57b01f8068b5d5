#!/usr/bin/env bash
# Makes sure the Debian packages that the build needs are installed.
# As root it installs what is missing; otherwise it prints the exact
# apt-get line to run and fails, so that `make` stops before configuring.
set -euo pipefail

packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev "$@")
missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

line="apt-get install -y ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    echo "Installing missing packages: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq "${missing[@]}"
else
    echo "Missing Debian packages. Run as root:" >&2
    echo "    $line" >&2
    exit 1
fi
