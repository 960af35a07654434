#!/usr/bin/env bash
# Installs what is missing, builds and runs every test; prints ctest's summary.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${ND_BUILD_DIR:-$root/build}"
bash "$root/scripts/install-deps.sh"
bash "$root/scripts/build.sh"
cd "$build"
export QT_QPA_PLATFORM=offscreen
ctest --output-on-failure -j2 --timeout 600 "$@"
