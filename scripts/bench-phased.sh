#!/usr/bin/env bash
# Reproduces the time-phased table of docs/benchmark.md on this machine: a
# Release build, the synthetic factories at scales 1 and 10 with planning
# parameters on every item, and in turn the whole `mrpcalc phased` process
# and the report's whole `mrpcalc mrp` process on the same demand (median
# of RUNS, and the median of the pairs' ratios), both read through a pipe.
#   scripts/bench-phased.sh [RUNS]        (default 11)
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-11}
source scripts/bench-common.sh

# Wall milliseconds of one run (the command after $1), its peak RSS appended to $1.
timed() {
  local peaks=$1; shift
  local start; start=$(date +%s%N)
  /usr/bin/time -f "%M" -a -o "$peaks" "$@" | cat >/dev/null
  echo $((($(date +%s%N) - start) / 1000000))
}

printf '| scale | planned orders | phased (median) | peak | report (median) | peak | phased / report (median of pairs) |\n'
printf '|---|---|---|---|---|---|---|\n'
for scale in 1 10; do
  db="$work/bench-$scale.db"
  "$mrpcalc" bench generate --dsn "sqlite:$db" --scale "$scale" >/dev/null
  "$mrpcalc" upgrade --dsn "sqlite:$db" >/dev/null
  # Lead times of 5-14 working days to buy and 2-6 to make plus 0.01 a
  # unit, safety stock 5, minimum 20, multiples of 10, maximum 5,000,
  # seven days grouped, a fence of three days; a holiday.
  sqlite3 "$db" "insert into mrpcalc_PlanParam (FItemID, FSupplyID, FLeadTime, FProdLeadTime,
    FProdLeadPerUnit, FSafetyQty, FSafetyDays, FMinQty, FMultiple, FMaxQty, FOrderPeriod,
    FFirmFence) select FItemID, 0, 5 + FItemID % 10, 2 + FItemID % 5, 0.01, 5, 0, 20, 10, 5000,
    7, 3 from t_ICItem; insert into mrpcalc_Holiday values ('2026-12-25 00:00:00')"
  phased=("$mrpcalc" phased --dsn "sqlite:$db" --today 2026-11-24 --warehouses 1 --actions
          --format csv)
  report=("$mrpcalc" mrp --dsn "sqlite:$db" --now-stock --moving --producing --warehouses 1
          --form 1 --format csv)
  orders=$("$mrpcalc" phased --dsn "sqlite:$db" --today 2026-11-24 --warehouses 1 --format csv |
           tail -n +2 | wc -l)
  : >"$work/a.times"; : >"$work/a.peaks"; : >"$work/b.times"; : >"$work/b.peaks"; : >"$work/ratios"
  "${phased[@]}" >/dev/null; "${report[@]}" >/dev/null  # warm-up
  for _ in $(seq "$runs"); do
    a=$(timed "$work/a.peaks" "${phased[@]}")
    b=$(timed "$work/b.peaks" "${report[@]}")
    echo "$a" >>"$work/a.times"
    echo "$b" >>"$work/b.times"
    awk -v a="$a" -v b="$b" 'BEGIN {print a / b}' >>"$work/ratios"
  done
  printf '| %s | %s | %.3f s | %s MB | %.3f s | %s MB | %.2f |\n' "$scale" "$orders" \
    "$(awk -v m="$(median <"$work/a.times")" 'BEGIN {print m / 1000}')" \
    "$(awk -v k="$(median <"$work/a.peaks")" 'BEGIN {printf "%.0f", k / 1024}')" \
    "$(awk -v m="$(median <"$work/b.times")" 'BEGIN {print m / 1000}')" \
    "$(awk -v k="$(median <"$work/b.peaks")" 'BEGIN {printf "%.0f", k / 1024}')" \
    "$(median <"$work/ratios")"
done
