#!/usr/bin/env bash
# Installs the Debian packages that arbolin builds and tests with; with
# --peers, also the peers that bench/peers.py measures against (R's rpart
# and XGBoost), which no test needs.
# Idempotent: says nothing and touches nothing when all are present.
set -euo pipefail

peers=(r-cran-rpart python3-xgboost)

packages=(
  build-essential cmake
  libtbb-dev libboost-dev liblapack64-dev
  libgtest-dev googletest
  pybind11-dev python3-dev python3-numpy python3-pytest python3-sklearn python3-scipy python3-pandas
  python3-dask python3-distributed python3-matplotlib
  python3-pip python3-venv python3-setuptools
  libcli11-dev nlohmann-json3-dev libcsv-dev
  clang libclang-rt-14-dev
)

if [ "${1:-}" = "--peers" ]; then
  packages+=("${peers[@]}")
elif [ $# -gt 0 ]; then
  echo "usage: $0 [--peers]" >&2
  exit 2
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
