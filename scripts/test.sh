#!/usr/bin/env bash
# Installs what is needed, builds mrpcalc with its tests, starts a private
# PostgreSQL server and runs every test on SQLite and on PostgreSQL through
# ODBC. The server is stopped at the end, also when tests fail.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --test
(cd tests/browser && npm ci --no-audit --no-fund --loglevel=error)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMRPCALC_BUILD_TESTS=ON \
      -DMRPCALC_BROWSER_TESTS=ON -DMRPCALC_FUZZ_TESTS=ON >/dev/null
cmake --build build -j"$(nproc)"

source scripts/postgres.sh
trap pg_stop EXIT
pg_start
ctest --test-dir build --output-on-failure
