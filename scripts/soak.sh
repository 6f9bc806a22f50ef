#!/usr/bin/env bash
# Fault soak of tavo-probe built with AddressSanitizer: broker restarts, a freeze, a cut
# during re-subscription and a refused password, then recovery, threads, descriptors,
# memory and sanitizer reports are checked. Usage: scripts/soak.sh [RESTARTS] (default 5;
# 20 is the long form).
set -euo pipefail
cd "$(dirname "$0")/.."
restarts="${1:-5}"
bash scripts/setup.sh soak
cmake --preset asan >/dev/null
cmake --build --preset asan --target tavo-probe mqtt_module fault_proxy
exec python3 scripts/soak.py build-asan/bin "$restarts"
