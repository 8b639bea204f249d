#!/usr/bin/env bash
# Times `kestro report` of a whole disc against `lsdvd -x` on the same disc,
# in the same run, alternating the two so that both see the same machine load.
#
#   scripts/bench-report.sh KESTRO_BINARY [RUNS] [DISC...]
#
# DISC is a folder holding VIDEO_TS/ (or the VIDEO_TS folder itself, or a
# folder of IFO files as in the real-disc corpus). Default: every disc of the
# corpus beside the checkout. Prints the mean and the best wall-clock time of
# each tool per disc, in milliseconds, and, where perf is installed, the
# median and the best CPU time (task-clock) of ten alternating rounds of
# RUNS runs each.
set -euo pipefail
kestro=${1:?usage: bench-report.sh KESTRO_BINARY [RUNS] [DISC...]}
runs=${2:-20}
shift $(( $# >= 2 ? 2 : 1 ))
cd "$(dirname "$0")/.."
discs=("$@")
if [ ${#discs[@]} -eq 0 ]; then
  for d in ../shared/corpus/*/; do [ -d "$d" ] && discs+=("${d%/}"); done
fi
command -v lsdvd >/dev/null || { echo "bench-report: lsdvd is not installed" >&2; exit 3; }

now_ns() { date +%s%N; }
# mean and best of a list of nanosecond durations, in milliseconds
summary() { awk '{s+=$1; if (min==""||$1<min) min=$1} END {printf "mean %.1f ms, best %.1f ms", s/NR/1e6, min/1e6}'; }

for disc in "${discs[@]}"; do
  # kestro reports the VIDEO_TS folder; lsdvd takes the disc folder.
  vts=$disc; [ -d "$disc/VIDEO_TS" ] && vts=$disc/VIDEO_TS
  lsdvd_arg=$disc; [ "$(basename "$disc")" = VIDEO_TS ] && lsdvd_arg=$(dirname "$disc")
  "$kestro" report "$vts" >/dev/null || { echo "$disc: kestro report failed" >&2; continue; }
  lsdvd -x "$lsdvd_arg" >/dev/null 2>&1 || { echo "$disc: lsdvd -x failed" >&2; continue; }
  k=(); l=()
  for ((i = 0; i < runs; i++)); do
    t=$(now_ns); "$kestro" report "$vts" >/dev/null; k+=($(( $(now_ns) - t )))
    t=$(now_ns); lsdvd -x "$lsdvd_arg" >/dev/null 2>&1; l+=($(( $(now_ns) - t )))
  done
  echo "$disc ($runs runs each):"
  echo "  kestro report: $(printf '%s\n' "${k[@]}" | summary)"
  echo "  lsdvd -x:      $(printf '%s\n' "${l[@]}" | summary)"
  if command -v perf >/dev/null && perf stat -e task-clock true >/dev/null 2>&1; then
    cpu() { perf stat -r "$runs" -e task-clock "$@" 2>&1 >/dev/null | awk '/task-clock/ {print $1}'; }
    kc=(); lc=()
    for ((r = 0; r < 10; r++)); do
      kc+=($(cpu "$kestro" report "$vts")); lc+=($(cpu lsdvd -x "$lsdvd_arg"))
    done
    median() { sort -n | awk '{v[NR]=$1} END {printf "median %.2f ms, best %.2f ms", (NR%2 ? v[(NR+1)/2] : (v[NR/2]+v[NR/2+1])/2), v[1]}'; }
    echo "  CPU, kestro:   $(printf '%s\n' "${kc[@]}" | median)"
    echo "  CPU, lsdvd:    $(printf '%s\n' "${lc[@]}" | median)"
  fi
done
