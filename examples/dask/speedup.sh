#!/usr/bin/env bash
# The speed-up of decode_captures.py from one worker to two on a local cluster, over four captures of the
# reference workload (../shared/workloads/bulk/gen.py, seeds 1-4).
#   usage: examples/dask/speedup.sh [N]     N messages per capture (default 50000)
# Needs the module built in build/python (bash scripts/test.sh, or cmake --build build). Runs are
# interleaved, five of each; the best and the median decode time of each (cluster start-up excluded)
# are reported: on a machine shared with other jobs the best run is the one they disturbed least.
set -euo pipefail
cd "$(dirname "$0")/../.."

N="${1:-50000}"
work=build/dask-speedup
rm -rf "$work" && mkdir -p "$work/in"
for seed in 1 2 3 4; do
  /usr/bin/python3 ../shared/workloads/bulk/gen.py "$work/gen$seed" "$N" "$seed" >/dev/null
  mv "$work/gen$seed/bulk.pcap" "$work/in/capture$seed.pcap"
done

PYTHONPATH="$PWD/build/python" /usr/bin/python3 - "$work" <<'PY'
import json, statistics, subprocess, sys
work = sys.argv[1]
times = {1: [], 2: []}
for _ in range(5):
    for workers in (1, 2):
        run = subprocess.run([sys.executable, "examples/dask/decode_captures.py", work + "/in",
                              "--formats", "../shared/workloads/bulk/bulk.json", "--out", "%s/out%d" % (work, workers),
                              "--workers", str(workers), "--quiet"], stdout=subprocess.PIPE, check=True)
        summary = json.loads(run.stdout)
        times[workers].append(summary["seconds"])
lines = summary["lines"]
best = {workers: min(runs) for workers, runs in times.items()}
median = {workers: statistics.median(runs) for workers, runs in times.items()}
for workers in (1, 2):
    print("%d worker%s: %d lines in %.2f s best (%.0f lines/s), %.2f s median"
          % (workers, "s"[:workers - 1], lines, best[workers], lines / best[workers], median[workers]))
print("speed-up: %.2fx best, %.2fx median" % (best[1] / best[2], median[1] / median[2]))
PY
