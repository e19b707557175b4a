#!/usr/bin/env bash
# Sets up, builds and runs the bundled example script end to end.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh" --target tavrek
cd "$root/examples"
"$root/build/tavrek" tour.txt < /dev/null
