#!/usr/bin/env bash
# Download speed of the batch mode against NZBGet on the same post from the same local server.
#
#   bench/download/run.sh [SIZE_MIB]      (default 200)
#
# Starts a private INN on loopback (needs root, like the tests), posts a SIZE_MIB MiB random file
# with nyuu (yEnc, 700 KiB articles, NZB written), then downloads it in turn with
#   newsdredge --batch --download-all     and     nzbget (standalone, the NZB)
# and prints the wall times and their ratio (newsdredge / nzbget).
#
#   ND_BENCH_WAN=1   both download through shared/tools/wan-proxy.py (40 ms round trip, a 40 MB/s
#                    line, 8 MB/s per connection; ND_WAN_ARGS overrides), the way a provider across
#                    the internet looks; nzbget then uses 8 connections
#   ND_NZBGET_CONNECTIONS=N   nzbget's connection count (default 1 on loopback, 8 through the proxy)
# Build first: cmake --build build --target newsdredge; tools: scripts/install-deps.sh.
set -euo pipefail

SRC=$(cd "$(dirname "$0")/../.." && pwd)
BUILD=${ND_BUILD_DIR:-$SRC/build}
SIZE_MIB=${1:-200}
ROUNDS=${ND_BENCH_ROUNDS:-3}
export ND_INN_BASE=${ND_INN_BASE:-12930}
PORT=$((ND_INN_BASE + 1))
WORK=$BUILD/bench-download
INNDIR=$WORK/inn
NYUU=$BUILD/tools/node_modules/.bin/nyuu
ND=$BUILD/src/newsdredge
GROUP=alt.binaries.newsdredge.bench$$
WAN=${ND_BENCH_WAN:-0}
WAN_ARGS=${ND_WAN_ARGS:---rtt 40 --line 40 --per-conn 8}
WAN_PROXY=${ND_WAN_PROXY:-$SRC/../shared/tools/wan-proxy.py}
if [ "$WAN" = "1" ]; then NZB_CONN=${ND_NZBGET_CONNECTIONS:-8}; else NZB_CONN=${ND_NZBGET_CONNECTIONS:-1}; fi

die() { echo "run.sh: $*" >&2; exit 1; }
[ -x "$ND" ] || die "build newsdredge first ($ND)"
[ -x "$NYUU" ] || die "nyuu missing: run scripts/install-deps.sh"
command -v nzbget >/dev/null || die "nzbget missing: run scripts/install-deps.sh"

rm -rf "$WORK"; mkdir -p "$WORK/src" "$WORK/nzbget"
PROXY_PID=""
cleanup() {
  [ -n "$PROXY_PID" ] && kill "$PROXY_PID" 2>/dev/null || true
  bash "$SRC/tests/harness/inn.sh" stop "$INNDIR" >/dev/null 2>&1 || true
}
trap cleanup EXIT
bash "$SRC/tests/harness/inn.sh" start "$INNDIR" >/dev/null
bash "$SRC/tests/harness/inn.sh" newgroup "$INNDIR" "$GROUP" >/dev/null

echo "posting ${SIZE_MIB} MiB with nyuu ..."
head -c $((SIZE_MIB * 1024 * 1024)) /dev/urandom > "$WORK/src/bench.bin"
( cd "$WORK/src" && "$NYUU" -h 127.0.0.1 -P "$PORT" -n 2 -a 700K -g "$GROUP" -q --check-tries 0 -O -o "$WORK/bench.nzb" bench.bin )
PARTS=$(grep -c '<segment ' "$WORK/bench.nzb")
echo "posted: $PARTS articles"

# Where the downloaders connect: the server itself, or the proxy in front of it.
FETCH_PORT=$PORT
if [ "$WAN" = "1" ]; then
  [ -f "$WAN_PROXY" ] || die "wan-proxy.py not found ($WAN_PROXY)"
  FETCH_PORT=$((ND_INN_BASE + 7))
  # shellcheck disable=SC2086
  python3 "$WAN_PROXY" "$FETCH_PORT" "$PORT" $WAN_ARGS >"$WORK/proxy.log" 2>&1 &
  PROXY_PID=$!
  for _ in $(seq 1 50); do (exec 3<>"/dev/tcp/127.0.0.1/$FETCH_PORT") 2>/dev/null && break; sleep 0.1; done
  echo "through wan-proxy: $WAN_ARGS"
fi

ND_HOME=$WORK/home
run_newsdredge() {
  local dest=$WORK/nd-out
  rm -rf "$dest" "$ND_HOME"; mkdir -p "$dest"
  local t0 t1
  t0=$(date +%s.%N)
  NEWSDREDGE_HOME=$ND_HOME/data XDG_CONFIG_HOME=$ND_HOME/config \
    "$ND" --batch --server "127.0.0.1:$FETCH_PORT" --newest 1000000 --download-all "$GROUP" --dest "$dest" \
    >"$WORK/nd.out" 2>"$WORK/nd.err" || { tail -5 "$WORK/nd.err" >&2; die "newsdredge failed"; }
  t1=$(date +%s.%N)
  cmp -s "$dest/bench.bin" "$WORK/src/bench.bin" || die "newsdredge: the downloaded file differs"
  echo "$t1 - $t0" | bc
}

run_nzbget() {
  local d=$WORK/nzbget
  rm -rf "$d"; mkdir -p "$d/dst" "$d/inter" "$d/tmp" "$d/queue" "$d/nzb"
  local t0 t1
  t0=$(date +%s.%N)
  nzbget -n \
    -o MainDir="$d" -o DestDir="$d/dst" -o InterDir="$d/inter" -o TempDir="$d/tmp" -o QueueDir="$d/queue" \
    -o NzbDir="$d/nzb" -o LockFile="$d/nzbget.lock" -o LogFile="$d/nzbget.log" -o WebDir="" -o ConfigTemplate="" \
    -o Server1.Active=yes -o Server1.Host=127.0.0.1 -o Server1.Port="$FETCH_PORT" -o Server1.Connections="$NZB_CONN" \
    -o Server1.Level=0 -o Server1.Encryption=no -o ControlIP=127.0.0.1 -o ControlPort=$((ND_INN_BASE + 9)) \
    -o OutputMode=loggable -o DirectWrite=yes -o CrcCheck=yes -o ParCheck=manual -o ParRepair=no -o Unpack=no \
    -o ArticleCache=0 -o WriteBuffer=1024 -o ContinuePartial=no -o DupeCheck=no -o AppendCategoryDir=no \
    -o UnpackCleanupDisk=no -o HealthCheck=none -o ArticleTimeout=60 -o ShellOverride="" \
    "$WORK/bench.nzb" >"$WORK/nzbget.out" 2>&1 || { tail -5 "$WORK/nzbget.out" >&2; die "nzbget failed"; }
  t1=$(date +%s.%N)
  local f
  f=$(find "$d/dst" -name bench.bin | head -1)
  [ -n "$f" ] && cmp -s "$f" "$WORK/src/bench.bin" || { tail -20 "$WORK/nzbget.out" >&2; die "nzbget: the downloaded file differs or is missing"; }
  echo "$t1 - $t0" | bc
}

# Untimed warm-up read so that neither side pays for the server's cold spool.
run_nzbget >/dev/null
ratios=()
for r in $(seq 1 "$ROUNDS"); do
  if [ $((r % 2)) -eq 1 ]; then nd=$(run_newsdredge); nz=$(run_nzbget); else nz=$(run_nzbget); nd=$(run_newsdredge); fi
  q=$(echo "scale=3; $nd / $nz" | bc)
  ratios+=("$q")
  echo "round $r: newsdredge ${nd}s, nzbget ${nz}s, ratio $q"
done
median=$(printf '%s\n' "${ratios[@]}" | sort -n | awk '{a[NR]=$1} END {print a[int((NR+1)/2)]}')
where=loopback; [ "$WAN" = "1" ] && where="wan-proxy ($WAN_ARGS)"
echo "download of ${SIZE_MIB} MiB ($PARTS articles) on $where, nzbget with $NZB_CONN connection(s), $ROUNDS rounds"
echo "ratio newsdredge/nzbget wall time (median of rounds): $median (target <= 1.0)"
