#!/usr/bin/env bash
# Installs every build, test and demo dependency on Debian 12. Idempotent and
# non-interactive: a second run installs nothing and changes no file.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
PKGS=(build-essential cmake pkg-config libpaho-mqtt-dev libhowardhinnant-date-dev
      libprotobuf-dev protobuf-compiler libgtest-dev libgmock-dev libbenchmark-dev
      libcli11-dev libcpp-httplib-dev libsqlite3-dev libyaml-cpp-dev libssl-dev openssl
      prometheus chromium  # system tests only: promtool, the shard scrape, the status page
      mosquitto mosquitto-clients libjsoncons-dev clang-format)
changed=0
put() { if [ ! -f "$1" ] || [ "$(cat "$1")" != "$2" ]; then printf '%s\n' "$2" | $SUDO tee "$1" >/dev/null; changed=1; fi; }
# jsoncons exists only in trixie: add that suite with priority -1 for every
# package, and 500 for libjsoncons-dev alone, so nothing else is ever upgraded.
base_uri=$(awk '$1=="URIs:"{print $2; exit}' /etc/apt/sources.list.d/debian.sources 2>/dev/null || true)
[ -n "$base_uri" ] || base_uri=$(awk '$1=="deb"{print $2; exit}' /etc/apt/sources.list 2>/dev/null || true)
[ -n "$base_uri" ] || base_uri="http://deb.debian.org/debian"
put /etc/apt/sources.list.d/trixie.sources "Types: deb
URIs: $base_uri
Suites: trixie
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg"
put /etc/apt/preferences.d/trixie-jsoncons "Package: *
Pin: release n=trixie
Pin-Priority: -1

Package: libjsoncons-dev
Pin: release n=trixie
Pin-Priority: 500"
missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ] || [ "$changed" -eq 1 ]; then $SUDO apt-get update -q; fi
# Never '-t trixie': that would lift every trixie package over the -1 pin.
if [ "${#missing[@]}" -gt 0 ]; then $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"; fi
