#!/usr/bin/env bash
# Builds the host, the module and the GoogleTest binary under clang's thread
# sanitizer into build-tsan/, and runs the tests whose work runs on several
# threads: whole fits on one thread against two (every parallel phase of a
# node: missing values, curvature and interaction tests, numeric and nominal
# column searches, surrogates), the custom criterion calling back from worker
# threads, failures and Ctrl-C on worker threads, the host's thread-safe
# services. Any report fails the run (status 66) after the tests have run.
#
#   scripts/tsan.sh              build and run
#   scripts/tsan.sh --filter F   another GoogleTest filter
#
# oneTBB is not instrumented; scripts/tsan.ignore, scripts/tsan.supp and
# tests/tsan_scalable_malloc.cpp say how the build copes with that.
set -euo pipefail
cd "$(dirname "$0")/.."
filter='ModuleFit.*:ParallelPhases.*:CustomCriterion.*:*AllocationFailure.*:Interrupt.*:HostFunctions.*:SpecialFunctions.*'
if [ "${1:-}" = "--filter" ]; then filter=$2; shift 2; fi
./scripts/install-deps.sh
start=$(date +%s)
CC=clang CXX=clang++ cmake -S . -B build-tsan -DARBOLIN_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-tsan --target arbolin_tests -j2 >/dev/null
built=$(date +%s)
TSAN_OPTIONS="suppressions=$PWD/scripts/tsan.supp halt_on_error=0 ${TSAN_OPTIONS:-}" \
  build-tsan/tests/arbolin_tests --gtest_filter="$filter" --gtest_brief=1
echo "tsan: clean; build $((built - start)) s, tests $(($(date +%s) - built)) s"
