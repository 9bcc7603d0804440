#!/usr/bin/env bash
# Sets up the machine, builds the library with its host stand-ins and
# metautils-inspect, installs them into ./out and shows what every getter
# returns for a capture: the bundled samples/main-faces.json, or the capture
# description or device dump given. Further arguments go to the inspector:
#   scripts/run.sh my-capture.json --logs --svg geometry.svg
#   scripts/run.sh dumpsys.txt --list
# Paths are taken relative to the folder it is run from.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/bootstrap.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$root/build" -j2
cmake --install "$root/build" --prefix "$root/out"
echo "installed into $root/out"
echo
if (($# == 0)); then
    cd "$root"
    set -- samples/main-faces.json
fi
"$root/out/bin/metautils-inspect" "$@"
