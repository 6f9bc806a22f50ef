#!/usr/bin/env bash
# Fails when a tracked C or C++ source differs from the repository's .clang-format.
# Fix with: git ls-files -z '*.cpp' '*.h' '*.c' | xargs -0 clang-format -i
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.cpp' '*.h' '*.c' | xargs -0 clang-format --dry-run -Werror
echo "formatting: all tracked sources match .clang-format"
