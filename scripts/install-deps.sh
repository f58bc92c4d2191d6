#!/usr/bin/env bash
# Installs the Debian 12 packages mrpcalc builds and tests with. Safe to run
# again: it only asks apt for what is missing.
#   scripts/install-deps.sh          build and run
#   scripts/install-deps.sh --test   also the test framework, PostgreSQL and clang
#   scripts/install-deps.sh --fuzz   also clang, for the fuzz target
set -euo pipefail

packages=(build-essential cmake pkg-config libsqlite3-dev unixodbc-dev odbc-postgresql tdsodbc
          nlohmann-json3-dev libsimdjson-dev libcli11-dev libfmt-dev libinih-dev libcpp-httplib-dev
          libxlsxwriter-dev libssl-dev zlib1g-dev)
if [[ "${1:-}" == "--test" || "${1:-}" == "--fuzz" ]]; then
  # The fuzz target is built with clang and its libFuzzer.
  packages+=(clang libclang-rt-14-dev)
fi
if [[ "${1:-}" == "--test" ]]; then
  # The browser test drives Debian's Chromium from Node.js (fonts for the
  # Chinese pages in its screenshots).
  # unzip: the tests read exported workbooks back.
  packages+=(libgtest-dev postgresql chromium fonts-wqy-zenhei unzip)
  command -v node >/dev/null || packages+=(nodejs)
  command -v npm >/dev/null || packages+=(npm)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  sudo_cmd=()
  [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  echo "installing: ${missing[*]}"
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
