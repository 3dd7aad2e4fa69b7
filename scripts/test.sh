#!/usr/bin/env bash
# Installs what is missing, builds the library, the tool and the tests, and runs every test.
#   scripts/test.sh                 plain build in build/
#   SANITIZE=1 scripts/test.sh      AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
#   SANITIZE=thread scripts/test.sh ThreadSanitizer build in build-tsan/, running the tests that use threads
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

build_dir=build
options=()
filter=()
if [ "${SANITIZE:-}" = thread ]; then
  build_dir=build-tsan
  options+=(-DSOMEIP_TSAN=ON -DCMAKE_BUILD_TYPE=Debug -DSOMEIP_BUILD_BENCH=OFF)
  filter=(-R Threads)
elif [ -n "${SANITIZE:-}" ]; then
  build_dir=build-asan
  options+=(-DSOMEIP_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug -DSOMEIP_BUILD_BENCH=OFF)
fi
if [ -n "${CI:-}" ]; then
  options+=(-DSOMEIP_WERROR=ON)
fi

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build_dir" "${options[@]}"
cmake --build "$build_dir" -j "$jobs"
ctest --test-dir "$build_dir" --output-on-failure -j "$jobs" "${filter[@]}"
