#!/usr/bin/env bash
# Builds and runs every test (GoogleTest and pytest through CTest), first in
# the plain build, then under the address and undefined-behaviour sanitizers;
# then a short run of every fuzz target on its seeds and the parallel phases
# under the thread sanitizer (both with clang). The long fuzz runs are
# scripts/fuzz.sh on its own.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/build.sh
(cd build && ctest --output-on-failure -j2)
./scripts/build.sh --sanitize
(cd build-asan && ctest --output-on-failure -j2)
./scripts/fuzz.sh --runs "${ARBOLIN_FUZZ_SMOKE_RUNS:-3000}"
./scripts/tsan.sh
