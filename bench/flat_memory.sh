#!/usr/bin/env bash
# Peak memory over a long capture: `someip-json capture -` decodes GB gigabytes of pcap written on the
# fly into its standard input (tests/endless_pcap.py: bulk messages, filler datagrams, and TP messages,
# IP datagrams and a TCP stream that never complete), in a Release build. Target: peak resident memory
# under 200 MB whatever the length. The suite runs the same check on 1 GB (CaptureFlatMemory).
#   usage: bench/flat_memory.sh [GB=20] [EXTRA TOOL OPTIONS...]
set -euo pipefail
cd "$(dirname "$0")/.."

GB="${1:-20}"
shift || true
B="$PWD/build-release"
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip-json >/dev/null
python3 tests/check_flat_memory.py "$B/tools/someip-json" bench/workloads/bulk.py "$B/flat_memory" "${GB}e9" 200 "$@"
