#!/usr/bin/env bash
# Installs what is missing, builds and runs the whole test suite.
# Usage: scripts/test.sh [dev|asan|tsan]   (default: dev)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"
bash scripts/setup.sh
cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset"
