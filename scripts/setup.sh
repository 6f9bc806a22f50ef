#!/usr/bin/env bash
# Installs every build, test and demo dependency on Debian 12. Idempotent and
# non-interactive: a second run installs nothing and changes no file.
# Usage: scripts/setup.sh [fuzz] [soak]
#
# Leaves the system's apt sources as they are. jsoncons exists only in Debian trixie, so its
# one package (headers and CMake files, architecture all, no dependencies) is fetched with a
# private apt configuration and unpacked into the user's cache, where CMake looks for it.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
PKGS=(build-essential cmake pkg-config libpaho-mqtt-dev libhowardhinnant-date-dev
      libprotobuf-dev protobuf-compiler libgtest-dev libgmock-dev libbenchmark-dev
      libcli11-dev libcpp-httplib-dev libsqlite3-dev libyaml-cpp-dev libssl-dev openssl
      prometheus chromium  # system tests only: the shard scrape, the status page
      mosquitto mosquitto-clients clang-format)
# Extra passes ask for their own tools: `setup.sh fuzz` (clang's libFuzzer), `setup.sh soak`.
for extra in "$@"; do
  case "$extra" in
    fuzz) PKGS+=(clang libclang-rt-14-dev) ;;
    soak) PKGS+=(python3) ;;
    *) echo "setup: unknown extra '$extra' (fuzz, soak)" >&2; exit 2 ;;
  esac
done
missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# ---- jsoncons from trixie, without touching /etc/apt ------------------------------------------
# The version is pinned so that every machine builds against the same headers; CMake finds
# them through the same path (cmake/jsoncons.cmake).
JSONCONS_VERSION=1.3.2-1
cache="${XDG_CACHE_HOME:-$HOME/.cache}/tavo-probe"
prefix="$cache/jsoncons-$JSONCONS_VERSION"
if [ ! -f "$prefix/usr/include/jsoncons/json.hpp" ]; then
  apt_dir="$cache/apt"
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial" "$apt_dir/parts"
  # The machine's own Debian mirror, first URIs line of its bookworm source.
  uri=$(awk '$1=="URIs:"{print $2; exit}' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
  [ -n "$uri" ] || uri=$(awk '$1=="deb"{print $2; exit}' /etc/apt/sources.list 2>/dev/null || true)
  [ -n "$uri" ] || uri="http://deb.debian.org/debian"
  echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $uri trixie main" \
    >"$apt_dir/sources.list"
  opts=(-o Dir::Etc::sourcelist="$apt_dir/sources.list" -o Dir::Etc::sourceparts="$apt_dir/parts"
        -o Dir::State::Lists="$apt_dir/lists" -o Dir::Cache="$apt_dir/cache"
        -o Dir::Etc::preferences=/dev/null -o Dir::Etc::preferencesparts="$apt_dir/parts")
  # apt drops to its own user for downloads, which cannot write into root's home.
  [ "$(id -u)" -ne 0 ] || opts+=(-o APT::Sandbox::User=root)
  apt-get "${opts[@]}" update -q
  (cd "$apt_dir" && apt-get "${opts[@]}" download "libjsoncons-dev=$JSONCONS_VERSION")
  deb="$apt_dir/libjsoncons-dev_${JSONCONS_VERSION}_all.deb"
  got=$(dpkg-deb -f "$deb" Version)
  if [ "$got" != "$JSONCONS_VERSION" ]; then
    echo "setup: expected libjsoncons-dev $JSONCONS_VERSION, got $got" >&2
    exit 1
  fi
  rm -rf "$prefix.tmp"
  dpkg-deb -x "$deb" "$prefix.tmp"
  mv "$prefix.tmp" "$prefix"
  rm -f "$deb"
fi
