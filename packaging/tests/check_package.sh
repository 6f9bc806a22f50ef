#!/usr/bin/env bash
# Installs the build tree into a scratch root and runs the installed tavo-probe from there, then
# builds the Debian package and checks its contents, control fields and conffiles.
# Usage: check_package.sh BUILD_DIR PREFIX PRIVATE_LIBDIR SYSCONFDIR   (exit 77: skipped)
set -euo pipefail
build="$1" prefix="$2" private="$3" sysconf="$4"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# ---- cmake --install ------------------------------------------------------------------------
root="$work/root"
DESTDIR="$root" cmake --install "$build" >/dev/null
libs="$root$prefix/$private"
# path in the installed tree | what it must be
while IFS='|' read -r path kind; do
  case "$kind" in
    file) [ -f "$root$path" ] || fail "$path missing" ;;
    link) [ -L "$root$path" ] && [ -e "$root$path" ] || fail "$path is no working link" ;;
    absent) [ ! -e "$root$path" ] || fail "$path should not be installed" ;;
  esac
done <<TABLE
$prefix/bin/tavo-probe|file
$prefix/$private/libMQTT.so|link
$prefix/$private/libMQTT.so.1|link
$prefix/$private/libTavoHelper.so.1|link
$prefix/$private/libTavoHelper.so|absent
$prefix/lib/systemd/system/tavo-probe.service|file
$prefix/lib/systemd/system/tavo-probe@.service|file
$prefix/share/doc/tavo-probe/README.md|file
$sysconf/tavo-probe/tavo-probe.yaml|file
TABLE

# binary | dynamic-section entry it must carry
while IFS='|' read -r binary entry; do
  readelf -d "$binary" | grep -qF "$entry" || fail "$(basename "$binary") lacks $entry"
done <<TABLE
$libs/libMQTT.so|Library soname: [libMQTT.so.1]
$libs/libMQTT.so|Shared library: [libTavoHelper.so.1]
$libs/libMQTT.so|Library runpath: [\$ORIGIN]
$libs/libTavoHelper.so.1|Library soname: [libTavoHelper.so.1]
TABLE

# The installed program must find its module, and the module its framework, with no help from
# the build tree or the environment.
if ! (cd / && env -u LD_LIBRARY_PATH "$root$prefix/bin/tavo-probe" describe >"$work/describe.out" 2>&1); then
  fail "installed tavo-probe describe failed:"; cat "$work/describe.out"
fi

# ---- cpack -G DEB ---------------------------------------------------------------------------
if ! command -v dpkg-shlibdeps >/dev/null; then
  echo "skipped the package: dpkg-shlibdeps (dpkg-dev) is not installed"
  [ "$failures" -eq 0 ] && exit 77 || exit 1
fi
(cd "$build" && cpack -G DEB -B "$work/pkg" >"$work/cpack.out" 2>&1) || {
  cat "$work/cpack.out"; fail "cpack -G DEB failed"; exit 1
}
deb=$(ls "$work"/pkg/tavo-probe_*.deb)
dpkg-deb -c "$deb" | awk '{print $6}' | sed 's#^\./#/#; s#/$##' >"$work/contents"
for path in "$prefix/bin/tavo-probe" "$prefix/$private/libMQTT.so" \
            "$prefix/$private/libTavoHelper.so.1" "$prefix/lib/systemd/system/tavo-probe@.service" \
            "$sysconf/tavo-probe/tavo-probe.yaml"; do
  grep -qxF "$path" "$work/contents" || fail "package lacks $path"
done
grep -q "libgtest\|libbenchmark\|/include/" "$work/contents" && fail "package carries test or development files"
dpkg-deb -f "$deb" Depends >"$work/depends"
# Computed from the binaries: the C library, Paho and protobuf must be named.
for dep in libc6 libstdc++6 libpaho-mqtt1.3 libprotobuf-lite32; do
  grep -q "$dep" "$work/depends" || fail "Depends lacks $dep: $(cat "$work/depends")"
done
dpkg-deb -e "$deb" "$work/control"
grep -qxF "$sysconf/tavo-probe/tavo-probe.yaml" "$work/control/conffiles" ||
  fail "the example config is no conffile"

[ "$failures" -eq 0 ] && echo "install tree and package checked"
exit $((failures > 0))
