#!/usr/bin/env bash
# Installs what is missing, builds, and runs the live demo against a local broker.
# Extra arguments go to `tavo-probe demo` (for example --seconds 30 or --json).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release
cmake --build --preset release --target tavo-probe mqtt_module
exec build-release/bin/tavo-probe demo "$@"
