#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer (clang, installed
# when missing) in build-fuzz/, then fuzzes each target in turn, starting from its checked-in corpus.
#   scripts/fuzz.sh [SECONDS_PER_TARGET [TARGET...]]    default: 60 s for each of every target
#   FUZZ_FLAGS="..." adds libFuzzer flags (a long campaign: FUZZ_FLAGS="-fork=1 -ignore_crashes=1").
# A crash, leak, timeout (10 s for one input) or undocumented exception fails the run; the input is left
# in build-fuzz/findings/. Inputs that found new coverage collect in build-fuzz/corpus/TARGET/ (they are
# not added to fuzz/corpus/ by this script).
set -euo pipefail
cd "$(dirname "$0")/.."

SOMEIP_FUZZ=1 bash scripts/install-deps.sh

seconds=${1:-60}
shift $(( $# > 0 ? 1 : 0 ))
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(classic_decode classic_encode format_load plain_decode plain_encode capture_read import_fibex import_arxml)

options=(-DSOMEIP_FUZZ_ENGINE=ON -DSOMEIP_SANITIZE=ON -DSOMEIP_BUILD_TESTS=OFF -DSOMEIP_BUILD_TOOLS=OFF
         -DSOMEIP_BUILD_BENCH=OFF -DSOMEIP_BUILD_PYTHON=OFF -DSOMEIP_INSTALL=OFF -DCMAKE_BUILD_TYPE=Debug)
[ -z "${CI:-}" ] || options+=(-DSOMEIP_WERROR=ON)
CC=clang CXX=clang++ cmake -S . -B build-fuzz "${options[@]}" \
  -DCMAKE_CXX_FLAGS="-O1 -gline-tables-only -fsanitize=fuzzer-no-link" --no-warn-unused-cli >/dev/null
cmake --build build-fuzz -j "$(nproc 2>/dev/null || echo 2)" -- --no-print-directory | grep -v '^\[' || true
for target in "${targets[@]}"; do
  [ -x "build-fuzz/fuzz/fuzz_$target" ] || { echo "fuzz: no target $target" >&2; exit 2; }
done

# Inputs a little larger than the seeds; a capture holds several frames.
max_len() { case $1 in capture_read) echo 16384 ;; format_load) echo 8192 ;; *) echo 4096 ;; esac; }

mkdir -p build-fuzz/findings
failed=()
for target in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$target"
  dict=()
  case $target in classic_encode | plain_encode | format_load) dict=(-dict=fuzz/json.dict) ;; esac
  log="build-fuzz/findings/$target.log"
  start=$SECONDS
  if "build-fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -max_len="$(max_len "$target")" \
       -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="build-fuzz/findings/$target-" "${dict[@]}" ${FUZZ_FLAGS:-} \
       "build-fuzz/corpus/$target" "fuzz/corpus/$target" >"$log" 2>&1; then
    result=ok
  else
    result=FAILED
    failed+=("$target")
    grep -E -A30 'FINDING|ERROR: |runtime error|==[0-9]+==' "$log" | head -60 >&2 || tail -30 "$log" >&2
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  [ -n "$runs" ] || runs=$(sed -n 's/^#\([0-9]*\):* .*/\1/p' "$log" | tail -1)  # fork mode's last progress line
  echo "fuzz: $target $result: ${runs:-?} runs in $((SECONDS - start)) s, corpus $(ls "build-fuzz/corpus/$target" | wc -l) files"
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in ${failed[*]} (inputs and logs in build-fuzz/findings/)" >&2
  exit 1
fi
