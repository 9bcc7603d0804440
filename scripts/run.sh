#!/usr/bin/env bash
# Sets up the machine, builds the library with its host stand-ins and
# installs it into ./out.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j2
cmake --install build --prefix "$PWD/out"
echo "installed into $PWD/out"
