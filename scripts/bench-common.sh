# What the benchmark scripts share, sourced from the project's root: the
# packages they need beside the build's, a Release build, `mrpcalc` (its
# program), `work` (a scratch folder removed at exit) and `median` (of
# numbers on standard input).
scripts/install-deps.sh
if ! command -v sqlite3 >/dev/null || [[ ! -x /usr/bin/time ]]; then
  sudo_cmd=(); [[ $(id -u) -ne 0 ]] && sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends sqlite3 time
fi
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DMRPCALC_BUILD_TESTS=OFF >/dev/null
cmake --build build-release -j"$(nproc)" >/dev/null
mrpcalc=build-release/src/mrpcalc
work=$(mktemp -d /tmp/mrpcalc-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

median() { sort -g | awk '{v[NR]=$1} END {print (NR%2 ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2)}'; }
