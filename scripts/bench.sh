#!/usr/bin/env bash
# Reproduces the table of docs/benchmark.md on this machine: a Release
# build, the synthetic factories at scales 0.1, 1, 4 and 10, and for each
# the whole `mrpcalc call` process on all open demand (median of RUNS) and,
# in turn with it, the sqlite3 shell reading every table the report reads.
#   scripts/bench.sh [RUNS]        (default 7)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-7}
source scripts/bench-common.sh
tables="ICBOM ICBOMChild t_ICItem t_MeasureUnit t_AuxItem t_SubMessage SEOrder SEOrderEntry
        ICMO ICMOEntry ICOutMO ICOutMOEntry ICStockBill ICStockBillEntry ICInventory t_Stock
        POOrder POOrderEntry t_SystemProfile"
for t in $tables; do echo "select * from $t;"; done >"$work/read.sql"

printf '| scale | demand lines | result rows | whole call (median) | peak RSS | sqlite3 shell reading the tables | call / read (median of pairs) |\n'
printf '|---|---|---|---|---|---|---|\n'
for scale in 0.1 1 4 10; do
  db="$work/bench-$scale.db"
  "$mrpcalc" bench generate --dsn "sqlite:$db" --scale "$scale" >/dev/null
  "$mrpcalc" bench request --dsn "sqlite:$db" --out "$work/request.json" >"$work/request.log"
  lines=$(grep -o '[0-9]* demand lines' "$work/request.log" | cut -d' ' -f1)
  rows=$("$mrpcalc" call ZUVMMrpCalculate.MrpDataInfo GetMrpReportData --dsn "sqlite:$db" \
           --args @"$work/request.json" | grep -c '"FBOMItemID"')
  : >"$work/call.times"; : >"$work/call.peaks"; : >"$work/read.times"; : >"$work/ratios"
  # Call and read floor in turn, so that both see the same machine; the
  # answer is read through a pipe, as a caller reads it. Wall time in
  # milliseconds from the clock; peak memory from /usr/bin/time.
  for _ in $(seq "$runs"); do
    start=$(date +%s%N)
    /usr/bin/time -f "%M" -a -o "$work/call.peaks" "$mrpcalc" call ZUVMMrpCalculate.MrpDataInfo \
      GetMrpReportData --dsn "sqlite:$db" --args @"$work/request.json" | cat >/dev/null
    call=$((($(date +%s%N) - start) / 1000))
    start=$(date +%s%N)
    sqlite3 "$db" <"$work/read.sql" | cat >/dev/null
    read=$((($(date +%s%N) - start) / 1000))
    echo "$call" >>"$work/call.times"
    echo "$read" >>"$work/read.times"
    awk -v c="$call" -v r="$read" 'BEGIN {print c / r}' >>"$work/ratios"
  done
  wall=$(median <"$work/call.times")
  peak=$(median <"$work/call.peaks")
  read=$(median <"$work/read.times")
  printf '| %s | %s | %s | %.3f s | %s MB | %.3f s | %.2f |\n' "$scale" "$lines" "$rows" \
    "$(awk -v u="$wall" 'BEGIN {print u / 1e6}')" \
    "$(awk -v k="$peak" 'BEGIN {printf "%.0f", k / 1024}')" \
    "$(awk -v u="$read" 'BEGIN {print u / 1e6}')" "$(median <"$work/ratios")"
done
