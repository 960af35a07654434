#!/usr/bin/env bash
# Decoder benchmarks, each against a peer measured in the same run:
#  1. the yEnc kernel on a 64 MiB dot-stuffed stream in memory vs yencode's decodeTo (stripDots)
#  2. newsdredge-decode of a 1 GiB multi-part temporary file vs cp of the same file
# Environment: BUILD_DIR (default build), BENCH_WORK (scratch directory),
# FILE_MB (size of the file test, default 1024), KEEP=1 keeps the scratch files.
set -euo pipefail
HERE=$(cd "$(dirname "$0")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
WORK=${BENCH_WORK:-$BUILD/bench-decoder}
FILE_MB=${FILE_MB:-1024}
export NODE_PATH=$BUILD/tools/node_modules

if ! node -e "require('yencode')" 2>/dev/null; then
  echo "yencode is missing: run scripts/install-deps.sh first" >&2; exit 2
fi
cmake --build "$BUILD" --target bench_yenc_kernel newsdredge-decode -j2 >/dev/null
mkdir -p "$WORK"
now() { date +%s.%N; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

echo "== 1. yEnc kernel, 64 MiB dot-stuffed stream, in memory"
[ -f "$WORK/stream.yenc" ] || node "$HERE/make_stream.js" $((64 << 20)) "$WORK/stream.yenc"
OURS=$("$BUILD/bench/decoder/bench_yenc_kernel" "$WORK/stream.yenc" 10)
THEIRS=$(node "$HERE/yencode_bench.js" "$WORK/stream.yenc" 10)
echo "$OURS" | awk '{ printf "  newsdredge %-7s %9.1f MB/s  crc %s%s\n", $1, $2, $3, ($5 == "best" ? "  (chosen at run time)" : "") }'
echo "$THEIRS" | awk '{ printf "  yencode            %9.1f MB/s  crc %s\n", $2, $3 }'
BEST=$(echo "$OURS" | awk '$5 == "best" { print $2 " " $3 }')
read -r BEST_MBS BEST_CRC <<<"$BEST"
read -r _ Y_MBS Y_CRC _ <<<"$THEIRS"
[ "$BEST_CRC" = "$Y_CRC" ] || { echo "  OUTPUT DIFFERS from yencode's ($BEST_CRC vs $Y_CRC)"; exit 1; }
[ "$BEST_CRC" = "$(cat "$WORK/stream.yenc.crc")" ] || { echo "  OUTPUT DIFFERS from the original"; exit 1; }
echo "  ratio newsdredge/yencode throughput: $(ratio "$BEST_MBS" "$Y_MBS")  (target >= 0.5)"

echo "== 2. DecodeToFile on a ${FILE_MB} MiB multi-part temporary file vs cp"
if [ ! -f "$WORK/set.tmp" ] || [ "$(stat -c %s "$WORK/orig.bin" 2>/dev/null || echo 0)" != $((FILE_MB << 20)) ]; then
  head -c $((FILE_MB << 20)) /dev/urandom > "$WORK/orig.bin"
  node --max-old-space-size=8192 "$ROOT/tests/decoder/make_yenc_set.js" "$WORK/orig.bin" "$WORK/set.tmp" 768000 --text
fi
cat "$WORK/set.tmp" "$WORK/orig.bin" > /dev/null  # both in the page cache
best_cp=999999; best_dec=999999
for i in 1 2 3 4 5; do
  rm -f "$WORK/copy.tmp"; sync
  t0=$(now); cp "$WORK/set.tmp" "$WORK/copy.tmp"; t1=$(now)
  best_cp=$(awk -v a="$best_cp" -v b="$(awk -v x="$t0" -v y="$t1" 'BEGIN{print y-x}')" 'BEGIN{print (b<a)?b:a}')
  rm -rf "$WORK/out"; mkdir -p "$WORK/out"; sync
  t0=$(now); "$BUILD/src/download/decoder/newsdredge-decode" "$WORK/set.tmp" "$WORK/out" >/dev/null; t1=$(now)
  best_dec=$(awk -v a="$best_dec" -v b="$(awk -v x="$t0" -v y="$t1" 'BEGIN{print y-x}')" 'BEGIN{print (b<a)?b:a}')
done
cmp "$WORK/out/orig.bin" "$WORK/orig.bin" || { echo "  DECODED FILE DIFFERS"; exit 1; }
echo "  input $(stat -c %s "$WORK/set.tmp") bytes, output $(stat -c %s "$WORK/out/orig.bin") bytes (identical to the original)"
echo "  cp:                ${best_cp} s (best of 5)"
echo "  newsdredge-decode: ${best_dec} s (best of 5)"
echo "  ratio newsdredge-decode/cp time: $(ratio "$best_dec" "$best_cp")  (target <= 1.5)"
rm -rf "$WORK/out" "$WORK/copy.tmp"
[ "${KEEP:-0}" = "1" ] || rm -rf "$WORK"
