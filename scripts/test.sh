#!/usr/bin/env bash
# Builds and runs every test (GoogleTest and pytest through CTest), first in
# the plain build, then under the address and undefined-behaviour sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/build.sh
(cd build && ctest --output-on-failure -j2)
./scripts/build.sh --sanitize
(cd build-asan && ctest --output-on-failure -j2)
