#!/usr/bin/env bash
# Fails unless FRAMEWORK exports only symbols of the namespaces it owns, and MODULE defines no
# type information (typeinfo, vtable) of a class that FRAMEWORK exports: a second copy would make
# catching an exception across the boundary depend on comparing type names. Class templates are
# left out: each library that instantiates one holds its own copy by nature.
# Usage: check_exports.sh FRAMEWORK MODULE
set -euo pipefail
framework="$1" module="$2"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
owned=(libtavohelper libexception libi18n liblog libstringutils)
alt=$(IFS='|'; echo "${owned[*]}")
names() { nm "$@" | sed -E 's/^[0-9a-fA-F]* *[A-Za-z] +//; s/@.*//' | sort -u; }
status=0

# 1. Every exported symbol belongs to an owned namespace, and each owned namespace is there.
names -D --defined-only -C "$framework" >"$work/exported"
grep -Ev "^(typeinfo for |typeinfo name for |vtable for )?corvanis::monitoring_modules::($alt)::" \
  "$work/exported" >"$work/strangers" || true
if [ -s "$work/strangers" ]; then
  echo "the framework exports symbols it does not own:"; head -20 "$work/strangers"; status=1
fi
for namespace in "${owned[@]}"; do
  grep -q "corvanis::monitoring_modules::$namespace::" "$work/exported" ||
    { echo "the framework exports nothing of $namespace"; status=1; }
done

# 2. The module holds no copy of the framework's type information (mangled names compared).
names -D --defined-only "$framework" | grep -E '^_ZT[IVS]' >"$work/framework_types"
names --defined-only "$module" | grep -E '^_ZT[IVS]' >"$work/module_types" || true
comm -12 "$work/framework_types" "$work/module_types" | c++filt | grep -v '<' >"$work/copies" || true
if [ -s "$work/copies" ]; then
  echo "the module carries its own copy of:"; cat "$work/copies"; status=1
fi

# 3. It uses the framework's instead. (grep reads to the end: an early exit would end nm with
# SIGPIPE, which pipefail reports as a failure.)
names -D --undefined-only -C "$module" |
  grep -xF "typeinfo for corvanis::monitoring_modules::libi18n::i18n_exception" >/dev/null ||
  { echo "the module does not take i18n_exception's type information from the framework"; status=1; }

[ "$status" -ne 0 ] || echo "framework exports and module type information checked"
exit "$status"
