#!/usr/bin/env bash
# Installs what is needed, builds mrpcalc and runs its main job on the
# embedded default: the demo database in ./mrpcalc-demo.db.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DMRPCALC_BUILD_TESTS=OFF >/dev/null
cmake --build build-release -j"$(nproc)"
./build-release/src/mrpcalc demo --dsn sqlite:mrpcalc-demo.db
