#!/usr/bin/env bash
# Installs what building and testing need on a fresh Debian machine: only the
# packages that are missing, without their recommendations, and never
# upgrading a package that is already installed.
set -euo pipefail
packages=(build-essential cmake qtbase5-dev qttools5-dev qttools5-dev-tools libgtest-dev libgmock-dev
          libbenchmark-dev libsqlite3-dev clang libclang-rt-14-dev python3
          libqt5charts5-dev # the demo terminal's smile chart
          xvfb xauth        # an X server for the terminal's screenshot test
          libgmp-dev        # exact reference of the decimal differential test
          libzstd-dev pkgconf # the replication session's compressed snapshots
          zlib1g-dev        # the replication frames' checksums
          libargon2-dev     # the exchange's password hashes
          openssl           # the replication tests' certificates, made when they run
          libquantlib0-dev  # independent option prices for the engine's tests and benchmark
          libsimdjson-dev   # the batch decoder's JSON parser
          libabsl-dev)      # flat hash maps
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing with apt-get: ${missing[*]}" >&2
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends --no-upgrade "${missing[@]}"
fi
