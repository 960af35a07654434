#!/usr/bin/env bash
# Runs each decoder fuzz target under libFuzzer (with AddressSanitizer and UBSan) for a bounded
# time and reports, per target, the executions done and the findings (crash, leak, time-out and
# out-of-memory inputs). Builds the targets with clang in a build tree of their own first.
# usage: run_fuzz.sh SOURCE_DIR BUILD_DIR SECONDS_PER_TARGET
# Exit status: 0 when no target found anything, 1 when one did, 77 when clang or libFuzzer is
# missing (the test is then skipped).
set -uo pipefail
src="$1" build="$2" seconds="${3:-30}"
cxx="$(command -v clang++ || true)"
cc="$(command -v clang || true)"
if [ -z "$cxx" ] || [ -z "$cc" ]; then
  echo "fuzz: clang is not installed; skipped"
  exit 77
fi
probe="$(mktemp -d)"
trap 'rm -rf "$probe"' EXIT
printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char *, unsigned long) { return 0; }\n' > "$probe/p.cpp"
if ! "$cxx" -fsanitize=fuzzer "$probe/p.cpp" -o "$probe/p" 2>/dev/null; then
  echo "fuzz: clang has no libFuzzer here; skipped"
  exit 77
fi

launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
if ! cmake -S "$src" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DND_FUZZ=ON \
     -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_COMPILER="$cc" "${launcher[@]}" > "$build.configure.log" 2>&1; then
  tail -20 "$build.configure.log"
  echo "fuzz: configuring the clang build failed"
  exit 1
fi
if ! cmake --build "$build" -j2 --target fuzz_yenc fuzz_uu fuzz_mime fuzz_decoders_replay > "$build.build.log" 2>&1; then
  tail -30 "$build.build.log"
  echo "fuzz: building the fuzz targets failed"
  exit 1
fi

corpus="$build/tests/fuzz/corpus"
mkdir -p "$corpus/seeds"
"$build/tests/fuzz/fuzz_decoders_replay" 0 --write-seeds "$corpus/seeds" > /dev/null

status=0
for t in yenc uu mime; do
  mkdir -p "$corpus/$t" "$build/findings/$t"
  log="$build/fuzz_$t.log"
  ( cd "$build/findings/$t" &&
    ASAN_OPTIONS=detect_leaks=1 "$build/tests/fuzz/fuzz_$t" -max_total_time="$seconds" -rss_limit_mb=2048 \
      -max_len=65536 -timeout=10 -print_final_stats=1 "$corpus/$t" "$corpus/seeds" ) > "$log" 2>&1
  rc=$?
  execs="$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' | tail -1)"
  findings="$(find "$build/findings/$t" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | wc -l)"
  echo "fuzz_$t: ${execs:-0} executions in ${seconds} s, ${findings} findings, corpus $(ls "$corpus/$t" | wc -l) inputs"
  if [ "$rc" -ne 0 ] || [ "$findings" -ne 0 ]; then
    status=1
    grep -E 'ERROR|SUMMARY|Test unit written' "$log" | head -10
  fi
done
exit $status
