#!/usr/bin/env bash
# The Python module on the bulk workload, side by side in one run: a decode call against json.loads of
# the same compact text, decode_many, read_capture, and capture_frames (rows/s). Release build.
#   usage: bench/python.sh [N]     N messages (default 100000, or $BULK_N)
set -euo pipefail
cd "$(dirname "$0")/.."
N="${1:-${BULK_N:-100000}}"
B="$PWD/build-release"
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip_parser_vaq_python >/dev/null
python3 bench/workloads/bulk.py "$B/workload" "$N" >/dev/null
PYTHONPATH="$B/python" /usr/bin/python3 bench/python.py "$B/workload"
