#!/usr/bin/env bash
# Installs the dependencies, then configures and builds into build/
# (and, with --sanitize, build-asan/ with the address and undefined-behaviour
# sanitizers).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
build=build
flags=()
if [ "${1:-}" = "--sanitize" ]; then
  build=build-asan
  flags=(-DARBOLIN_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
fi
cmake -S . -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j2
