#!/usr/bin/env bash
# Installs the dependencies, builds the module and the arbolin tool into
# build/, and runs `arbolin demo` on the bundled data (models and
# predictions go to build/demo/).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build >/dev/null
cmake --build build --target arbolin_cli -j2
build/bin/arbolin demo --output-dir build/demo
