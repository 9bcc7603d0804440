#!/usr/bin/env bash
# Sets up the machine, builds everything with the tests and runs them all.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMETAUTILS_BUILD_TESTS=ON
cmake --build build -j2
ctest --test-dir build --output-on-failure -j2
