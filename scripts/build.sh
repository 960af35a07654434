#!/usr/bin/env bash
# Configures and builds Newsdredge into ./build (or $ND_BUILD_DIR).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${ND_BUILD_DIR:-$root/build}"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE="${ND_BUILD_TYPE:-RelWithDebInfo}" ${ND_CMAKE_ARGS:-} >/dev/null
cmake --build "$build" -j"$(nproc)"
