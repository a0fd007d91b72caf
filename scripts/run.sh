#!/usr/bin/env bash
# Sets up, builds and runs the console on the bundled market.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
mkdir -p "$root/build"
"$root/scripts/build.sh" "$root/build/release" -DDIRECTORY_BUILD_TESTS=OFF
if [ $# -eq 0 ]; then set -- --replay --market DERIV --security 1,1,100001; fi
"$root/build/release/apps/directory-console" "$@"
