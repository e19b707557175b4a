#!/usr/bin/env bash
# Sets up, builds the engine, then goes a player's way end to end: a bundled spot
# file is solved and a report of one decision is written to build/example-report/.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh" --target tavrek
"$root/python/bin/tavrek-spot" "$root/examples/river.toml" --tree --no-script
"$root/python/bin/tavrek-report" "$root/examples/river.toml" --node r:0:c --out "$root/build/example-report" \
  --engine "$root/build/tavrek"
echo "open $root/build/example-report/report.html in a browser"
