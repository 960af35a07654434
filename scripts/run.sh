#!/usr/bin/env bash
# Installs what is missing, builds and starts Newsdredge.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
WITH_TEST_PEERS=0 bash "$root/scripts/install-deps.sh"
bash "$root/scripts/build.sh"
exec "${ND_BUILD_DIR:-$root/build}/src/newsdredge" "$@"
