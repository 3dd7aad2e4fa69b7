#!/usr/bin/env bash
# The capture report against the capture's JSON lines on the bulk capture (bench/workloads/bulk.py): both
# read and decode every message once; the report also keeps its counts and series and writes one page.
# Target: the report takes at most twice the time of `someip-json capture`.
#   usage: bench/report.sh [N]     N messages (default 100000, or $BULK_N); build in $BUILD_DIR
#                                  (default build-release)
set -euo pipefail
cd "$(dirname "$0")/.."

N="${1:-${BULK_N:-100000}}"
B="${BUILD_DIR:-$PWD/build-release}"
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip-json >/dev/null
python3 bench/workloads/bulk.py "$B/workload" "$N"

# Three runs each, interleaved so that outside load lands on both alike; the best wall-clock and processor
# times of each, and each one's largest resident size.
python3 - "$N" "$B" <<'PY'
import os, subprocess, sys, time
n, out = int(sys.argv[1]), sys.argv[2]
pcap, formats, tool = out + "/workload/bulk.pcap", out + "/workload/bulk.json", out + "/tools/someip-json"
commands = {
    "capture": ([tool, "capture", pcap, "--formats", formats, "--quiet", "--allow-failures"], out + "/capture.jsonl"),
    "report": ([tool, "report", pcap, "--formats", formats, "--quiet", "--allow-failures", "-o", out + "/report.html"], os.devnull),
}
best = {name: [float("inf"), float("inf"), 0] for name in commands}
for _ in range(3):
    for name, (argv, target) in commands.items():
        start = time.monotonic()
        with open(target, "wb") as sink:
            child = subprocess.Popen(argv, stdout=sink, stderr=subprocess.DEVNULL)
            _, status, usage = os.wait4(child.pid, 0)
        wall = time.monotonic() - start
        if status != 0:
            sys.exit("%s failed" % name)
        b = best[name]
        best[name] = [min(b[0], wall), min(b[1], usage.ru_utime + usage.ru_stime), max(b[2], usage.ru_maxrss)]
print("\n%d messages; best of 3 runs each, interleaved.\n" % n)
print("| Command | Wall time | Messages/s | Processor time | Peak RSS |")
print("|---|---|---|---|---|")
for name, (wall, cpu, rss) in best.items():
    print("| someip-json %s | %.2f s | %s | %.2f s | %.1f MB |" % (name, wall, "{:,.0f}".format(n / wall), cpu, rss / 1024))
ratio = best["report"][0] / best["capture"][0]
print("\nReport / capture: %.2fx by wall time, %.2fx by processor time (target <= 2x); page %.1f MB."
      % (ratio, best["report"][1] / best["capture"][1], os.path.getsize(out + "/report.html") / 1e6))
PY
