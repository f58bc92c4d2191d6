#!/usr/bin/env bash
# Installs what is needed, builds mrpcalc, and starts the planner's web
# workbench on the demo database (./mrpcalc-demo.db, created when missing)
# at http://127.0.0.1:8080/, printing a sign-in token for the demo's planner
# (user 16). Stop it with Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DMRPCALC_BUILD_TESTS=OFF >/dev/null
cmake --build build-release -j"$(nproc)"
mrpcalc=./build-release/src/mrpcalc
dsn=sqlite:mrpcalc-demo.db
[[ -f mrpcalc-demo.db ]] || "$mrpcalc" init --dsn "$dsn" --demo
token=$("$mrpcalc" token create --dsn "$dsn" --user "${MRPCALC_USER:-16}" 2>/dev/null)
echo "Open http://127.0.0.1:${MRPCALC_PORT:-8080}/ and sign in with this token:"
echo "  $token"
exec "$mrpcalc" serve --dsn "$dsn" --port "${MRPCALC_PORT:-8080}"
