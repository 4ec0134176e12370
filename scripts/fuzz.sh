#!/usr/bin/env bash
# Builds the libFuzzer targets with clang into build-fuzz/ and runs each one
# on a copy of its seed corpus (fuzz/corpus/NAME/), so that the repository's
# seeds stay as they are.
#
#   scripts/fuzz.sh                 every target, 1,000,000 runs each
#   scripts/fuzz.sh --runs 50000    every target, that many runs each
#   scripts/fuzz.sh --runs N csv    only fuzz_csv
#
# A finding stops the run with the fuzzer's report and a crash-* file in
# build-fuzz/findings/; the status is then non-zero.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=1000000
if [ "${1:-}" = "--runs" ]; then runs=$2; shift 2; fi
./scripts/install-deps.sh
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DARBOLIN_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in fuzz/fuzz_*.cpp; do targets+=("$(basename "$f" .cpp | sed 's/^fuzz_//')"); done
fi
# Only the fuzz targets: the module library, linked with --no-undefined,
# does not link against clang's sanitizer runtimes.
cmake --build build-fuzz -j2 --target "${targets[@]/#/fuzz_}" >/dev/null
mkdir -p build-fuzz/findings
for t in "${targets[@]}"; do
  work=build-fuzz/corpus/$t
  mkdir -p "$work"
  [ -d "fuzz/corpus/$t" ] && cp -n fuzz/corpus/"$t"/* "$work"/ 2>/dev/null || true
  start=$(date +%s)
  log=build-fuzz/fuzz_$t.log
  if ! ASAN_OPTIONS=detect_leaks=1 "build-fuzz/fuzz/fuzz_$t" -runs="$runs" -max_len=4096 \
        -artifact_prefix=build-fuzz/findings/ "$work" >"$log" 2>&1; then
    cat "$log"
    echo "fuzz_$t: FINDING (see build-fuzz/findings/)"
    exit 1
  fi
  done_line=$(grep -E '^Done [0-9]+ runs' "$log" | tail -n 1)
  echo "fuzz_$t: ${done_line:-no summary} ($(( $(date +%s) - start )) s, corpus $(ls "$work" | wc -l) files)"
done
