#!/usr/bin/env bash
# Configures and builds Tavrek (Release) in build/ after making sure the
# packages it needs are installed.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build "$root/build" -j"$(nproc)" "$@"
