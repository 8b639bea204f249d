#!/usr/bin/env bash
# Sets up a fresh machine, builds everything and runs every test.
#   scripts/test.sh          the normal build
#   scripts/test.sh asan     the AddressSanitizer + UBSan build
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}
scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j"$(nproc)"
ctest --preset "$preset" -j"$(nproc)"
