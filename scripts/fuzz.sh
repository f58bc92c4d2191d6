#!/usr/bin/env bash
# Builds the fuzz target of the request doors with clang (libFuzzer, address
# and undefined-behaviour sanitizers) and runs it on the corpus in
# fuzz/corpus. New inputs it finds go to a scratch folder, not the corpus.
#   scripts/fuzz.sh                 a short run: 200,000 inputs (the tests)
#   scripts/fuzz.sh -max_total_time=600 -jobs=2   any libFuzzer options
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --fuzz
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMRPCALC_BUILD_TESTS=OFF -DMRPCALC_FUZZ=ON >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target mrpcalc_fuzz >/dev/null
scratch=$(mktemp -d /tmp/mrpcalc-fuzz.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
args=("$@")
((${#args[@]})) || args=(-runs=200000 -seed=1)
ASAN_OPTIONS=detect_leaks=0 build-fuzz/fuzz/mrpcalc_fuzz -max_len=65536 -timeout=10 \
  -artifact_prefix="$scratch/" "${args[@]}" "$scratch" fuzz/corpus
