#!/usr/bin/env bash
# `someip-json capture --jobs N` against one job on the bulk capture (bench/workloads/bulk.py), in a
# Release build: runs interleaved (1, N, 1, N, ...) so that outside load lands on both alike; the best
# wall time of each and the ratio are reported.
#   usage: bench/capture_jobs.sh [MESSAGES=300000] [JOBS=number of cores] [RUNS=5]
set -euo pipefail
cd "$(dirname "$0")/.."

N="${1:-300000}"
JOBS="${2:-$(nproc)}"
RUNS="${3:-5}"
B="$PWD/build-release"
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip-json >/dev/null
python3 bench/workloads/bulk.py "$B/workload" "$N" >/dev/null

python3 - "$B" "$N" "$JOBS" "$RUNS" <<'PY'
import os, subprocess, sys, time
out, n, jobs, runs = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
pcap, formats = out + "/workload/bulk.pcap", out + "/workload/bulk.json"
size = os.path.getsize(pcap)
best, all_runs = {}, {}
for _ in range(runs):
    for j in (1, jobs):
        start = time.monotonic()
        subprocess.run([out + "/tools/someip-json", "capture", pcap, "--formats", formats, "--quiet", "--allow-failures", "--jobs", str(j)],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        wall = time.monotonic() - start
        best[j] = min(best.get(j, float("inf")), wall)
        all_runs.setdefault(j, []).append(wall)
print("\n%d messages, capture %.1f MB; %d interleaved runs each, best wall time.\n" % (n, size / 1e6, runs))
print("| someip-json capture | Wall time | Messages/s | MB/s | All runs |")
print("|---|---|---|---|---|")
for j in (1, jobs):
    print("| --jobs %d | %.2f s | %s | %.1f | %s |" % (j, best[j], "{:,.0f}".format(n / best[j]), size / 1e6 / best[j],
                                                    " ".join("%.2f" % w for w in all_runs[j])))
print("\nRatio: %.2fx with %d jobs (target >= 1.7x on 2 cores)." % (best[1] / best[jobs], jobs))
PY
