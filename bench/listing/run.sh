#!/usr/bin/env bash
# Listing at scale against a scripted loopback server (in the benchmark's own threads):
#
#   bench/listing/run.sh [ROWS [GROUPS [ROUNDS]]]      (default 1000000 100000 3)
#
# Prints, measured in the same run: the ratio of ListMessages (request to a filled, sorted grid;
# the cache file is finished behind it) to a plain read of the same OVER answer (target <= 2.0), the peak
# memory of the listing against the overview text (target <= 3.0), the time of a LIST ACTIVE
# of GROUPS groups through LoadGroupList, and how long Stop takes to end both.
# Build first: cmake --build build --target bench_listing
set -euo pipefail
SRC=$(cd "$(dirname "$0")/../.." && pwd)
BUILD=${ND_BUILD_DIR:-$SRC/build}
BIN=$BUILD/bench/listing/bench_listing
[ -x "$BIN" ] || { echo "run.sh: build bench_listing first ($BIN)" >&2; exit 1; }
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
echo "load before: $(uptime)"
QT_QPA_PLATFORM=offscreen XDG_CONFIG_HOME=$WORK/config NEWSDREDGE_HOME=$WORK/data "$BIN" "$@"
echo "load after: $(uptime)"
