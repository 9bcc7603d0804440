#!/usr/bin/env bash
# Installs what the build, the tests and the tools need on a Debian machine;
# with --all also what the other CI stages need (sanitizers and fuzzing with
# clang, the 64-bit Arm cross toolchain, qemu and Arm's liblog; headless
# Chromium, its driver and Python's selenium for the HTML report's test, and the
# linter of its script). Does nothing
# when everything is already there.
set -euo pipefail

packages=(cmake make g++ pkg-config binutils libgtest-dev libgmock-dev googletest
          android-liblog-dev nlohmann-json3-dev libcli11-dev librsvg2-bin libbenchmark-dev
          doxygen libarchive-dev libmuparser-dev)
if [ "${1:-}" = "--all" ]; then
    packages+=(clang-14 libclang-rt-14-dev g++-aarch64-linux-gnu qemu-user
               android-liblog:arm64 chromium chromium-driver python3-selenium eslint)
fi

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    if printf '%s\n' "${missing[@]}" | grep -q ':arm64$' &&
        ! dpkg --print-foreign-architectures | grep -qx arm64; then
        $sudo dpkg --add-architecture arm64
    fi
    $sudo apt-get update
    $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
