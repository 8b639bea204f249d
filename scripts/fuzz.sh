#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each of them.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
#
# TARGET is any of pgc_fuzz vmg_ifo_fuzz vts_ifo_fuzz source_fuzz check_fuzz (default:
# all, one after another). KESTRO_FUZZ_JOBS=2 runs two targets at a time.
# KESTRO_FUZZ_IFOS may name more IFO files (space-separated) to seed from;
# KESTRO_FUZZ_BUILD names the build folder (default build-fuzz).
# Seeds: the IFO files of the real-disc corpus beside the checkout and the
# sources of examples/sample. Each target keeps its growing corpus in
# build-fuzz/corpus/<target>; a crash leaves its input in
# build-fuzz/artifacts/<target>/ and makes the script exit with status 1.
# The summary at the end gives every target's runs, rate (inputs per second
# of wall time), processor time and inputs per processor second, with the
# load average (on a shared machine the last column is what compares).
set -euo pipefail
secs=${1:?usage: fuzz.sh SECONDS [TARGET...]}
shift
cd "$(dirname "$0")/.."
root=$(pwd)
build=${KESTRO_FUZZ_BUILD:-$root/build-fuzz}
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(pgc_fuzz vmg_ifo_fuzz vts_ifo_fuzz source_fuzz check_fuzz)
jobs=${KESTRO_FUZZ_JOBS:-1}

if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -DKESTRO_BUILD_FUZZ=ON \
    -DKESTRO_BUILD_TESTS=OFF -DKESTRO_BUILD_TOOLS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer" \
    >/dev/null
else
  cmake "$build" >/dev/null
fi
cmake --build "$build" -j"$(nproc)" --target "${targets[@]}" make_seeds >/dev/null

# Seed corpora.
seeds=$build/seeds
rm -rf "$seeds"
ifos=()
for f in "$root"/../shared/corpus/*/*.IFO ${KESTRO_FUZZ_IFOS:-}; do
  [ -f "$f" ] && ifos+=("$f")
done
mkdir -p "$seeds"
if [ ${#ifos[@]} -gt 0 ]; then
  ASAN_OPTIONS=detect_leaks=0 "$build/fuzz/make_seeds" "$seeds" "${ifos[@]}"
fi
mkdir -p "$seeds/vmg" "$seeds/vts" "$seeds/source" "$seeds/pgc" "$seeds/check"
# The checker reads IFO files of both kinds.
cp "$seeds"/vmg/* "$seeds"/vts/* "$seeds/check/" 2>/dev/null || true
for ini in "$root"/examples/sample/*.ini; do
  [ -f "$ini" ] && cp "$ini" "$seeds/source/sample-$(basename "$ini")"
done
# Every section and key the seeds use (indexes up to 2 only), as a dictionary
# for the source target.
cat "$seeds"/source/* 2>/dev/null | LC_ALL=C tr -d "\r" |
  LC_ALL=C sed -n -e 's/^\(\[[^]]*\]\).*/"\1"/p' -e 's/^\([A-Za-z0-9_]*\)=.*/"\1="/p' |
  LC_ALL=C grep -v -E '([3-9]|[1-9][0-9]+)_?[a-z_]*="$' | sort -u > "$build/source.dict"

seed_dir() {
  case "$1" in
    pgc_fuzz) echo "$seeds/pgc" ;;
    vmg_ifo_fuzz) echo "$seeds/vmg" ;;
    vts_ifo_fuzz) echo "$seeds/vts" ;;
    source_fuzz) echo "$seeds/source" ;;
    check_fuzz) echo "$seeds/check" ;;
  esac
}

# Removes the scratch folders of fuzz targets of the given tag whose
# processes have ended.
remove_ended() {
  local d pid
  for d in /dev/shm/kestro-"$1"-* /tmp/kestro-"$1"-*; do
    [ -d "$d" ] || continue
    pid=${d##*/kestro-"$1"-}
    pid=${pid%%-*}
    case "$pid" in '' | *[!0-9]*) continue ;; esac
    [ -d "/proc/$pid" ] || rm -rf "$d"
  done
}

run_one() {
  local t=$1 corpus=$build/corpus/$1 art=$build/artifacts/$1/
  local extra=()
  mkdir -p "$corpus" "$art"
  [ "$t" = source_fuzz ] && [ -s "$build/source.dict" ] && extra+=(-dict="$build/source.dict")
  echo "== $t: ${secs}s"
  local start=$SECONDS
  # libFuzzer ends without running destructors: the scratch folders of the
  # run ("kestro-<tag>-<pid>-*" in /dev/shm or /tmp) are removed afterwards,
  # with those of other runs that have ended (never those of a live process).
  local tag
  case "$t" in
    pgc_fuzz) tag=pgc ;; vmg_ifo_fuzz) tag=vmg ;; vts_ifo_fuzz) tag=vts ;;
    check_fuzz) tag=check ;; *) tag=src ;;
  esac
  trap "remove_ended $tag; trap - RETURN" RETURN
  rm -f "$build/$t.rate"
  # The processor time the run took (user + system), beside the wall time:
  # on a shared machine the rate per processor second is what compares.
  local TIMEFORMAT='%U %S'
  if { time ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
     UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "$build/fuzz/$t" -max_total_time="$secs" -timeout=60 -rss_limit_mb=4096 \
       -max_len=65536 -print_final_stats=1 -artifact_prefix="$art" "${extra[@]}" \
       "$corpus" "$(seed_dir "$t")" > "$build/$t.log" 2>&1; } 2> "$build/$t.cpu"; then
    # libFuzzer ends with "Done N runs in S second(s)": the rate is N / S.
    local summary runs=0 took=1 user=0 sys=0 cpu percpu
    summary=$(grep -o "Done [0-9]* runs in [0-9]* second" "$build/$t.log" | tail -1)
    [ -n "$summary" ] && read -r _ runs _ _ took _ <<< "$summary"
    [ "$took" -gt 0 ] || took=1
    read -r user sys < "$build/$t.cpu" || true
    read -r cpu percpu <<< "$(awk -v u="${user:-0}" -v s="${sys:-0}" -v n="$runs" \
      'BEGIN { c = u + s; printf "%.1f %.0f\n", c, (c > 0 ? n / c : 0) }')"
    echo "$t $runs $((runs / took)) $cpu $percpu" > "$build/$t.rate"
    echo "   $t: clean after $((SECONDS - start))s ($(grep -c . "$build/$t.log") log lines," \
      "$runs runs, $((runs / took)) inputs/second, $percpu per processor second)"
  else
    echo "$t FAILED" > "$build/$t.rate"
    echo "   $t: FAILED, see $build/$t.log and $art" >&2
    return 1
  fi
}

status=0
pids=()
for t in "${targets[@]}"; do
  if [ "$jobs" -gt 1 ]; then
    run_one "$t" & pids+=($!)
    if [ ${#pids[@]} -ge "$jobs" ]; then wait "${pids[0]}" || status=1; pids=("${pids[@]:1}"); fi
  else
    run_one "$t" || status=1
  fi
done
for p in "${pids[@]}"; do wait "$p" || status=1; done

# Summary: every target's runs and rate (inputs per second, as libFuzzer
# counts them), and how busy the machine was (rates fall with its load).
echo "== summary: ${secs}s per target, $jobs at a time," \
  "load average $(cut -d' ' -f1-3 /proc/loadavg)"
printf '   %-14s %9s %9s %9s %12s\n' target runs inputs/s cpu-s inputs/cpu-s
for t in "${targets[@]}"; do
  [ -f "$build/$t.rate" ] || continue
  read -r _ runs rate cpu percpu < "$build/$t.rate" || true
  if [ "$runs" = FAILED ]; then
    printf '   %-14s %9s\n' "$t" FAILED
  else
    printf '   %-14s %9s %9s %9s %12s\n' "$t" "$runs" "$rate" "$cpu" "$percpu"
  fi
done
exit $status
