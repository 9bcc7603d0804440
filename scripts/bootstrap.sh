#!/usr/bin/env bash
# Installs what the build, the tests and the tools need on a Debian machine.
# Does nothing when everything is already there.
set -euo pipefail

packages=(cmake make g++ pkg-config libgtest-dev libgmock-dev android-liblog-dev
          nlohmann-json3-dev libcli11-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update
    $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
