#!/usr/bin/env bash
# The speed-up of decode_captures.py from one worker to two on a local cluster, over four captures of the
# bulk workload (bench/workloads/bulk.py, seeds 1-4).
#   usage: examples/dask/speedup.sh [N]     N messages per capture (default 50000)
# Needs the module built in build/python (bash scripts/test.sh, or cmake --build build).
#
# Beside it, the ceiling the machine allows at that moment: the same captures decoded by one plain
# process, and split between two that run side by side (no Dask). On a machine shared with other jobs
# the second core is often not free, and no scheduler can do better than that. Runs are interleaved,
# five of each; the best and the median times are reported (the cluster's start-up is not counted; the
# plain processes' own start-up, a tenth of a second, is).
set -euo pipefail
cd "$(dirname "$0")/../.."

N="${1:-50000}"
work=build/dask-speedup
rm -rf "$work" && mkdir -p "$work/in"
for seed in 1 2 3 4; do
  /usr/bin/python3 bench/workloads/bulk.py "$work/gen$seed" "$N" "$seed" >/dev/null
  mv "$work/gen$seed/bulk.pcap" "$work/in/capture$seed.pcap"
done

PYTHONPATH="$PWD/build/python" /usr/bin/python3 - "$work" <<'PY'
import glob, json, os, statistics, subprocess, sys, time
work = sys.argv[1]
formats = work + "/gen1/bulk.json"
captures = sorted(glob.glob(work + "/in/*.pcap"))
PLAIN = """
import sys, someip_parser_vaq as sp
fs = sp.Formats(sys.argv[1])
for path in sys.argv[3:]:
    with open(sys.argv[2] + "/" + path.rsplit("/", 1)[1] + ".jsonl", "w") as out:
        for line in sp.read_capture(path, fs, lines=True):
            out.write(line)
            out.write("\\n")
"""

def dask(workers):
    run = subprocess.run([sys.executable, "examples/dask/decode_captures.py", work + "/in", "--formats", formats,
                          "--out", "%s/dask%d" % (work, workers), "--workers", str(workers), "--quiet"],
                         stdout=subprocess.PIPE, check=True)
    return json.loads(run.stdout)["seconds"]

def plain(processes):
    out = "%s/plain%d" % (work, processes)
    os.makedirs(out, exist_ok=True)
    start = time.perf_counter()
    running = [subprocess.Popen([sys.executable, "-c", PLAIN, formats, out] + captures[i::processes])
               for i in range(processes)]
    if [p.wait() for p in running] != [0] * processes:
        sys.exit("a plain decoding process failed")
    return time.perf_counter() - start

times = {}
for _ in range(5):
    for name, run in (("dask", dask), ("plain", plain)):
        for n in (1, 2):
            times.setdefault((name, n), []).append(run(n))
best = {key: min(runs) for key, runs in times.items()}
median = {key: statistics.median(runs) for key, runs in times.items()}
for name, label in (("dask", "Dask, %d worker%s"), ("plain", "plain processes, %d process%s")):
    for n in (1, 2):
        print((label % (n, ["", "es" if name == "plain" else "s"][n - 1])).ljust(28),
              "%.2f s best, %.2f s median" % (best[(name, n)], median[(name, n)]))
    print("%s speed-up from 1 to 2: %.2fx best, %.2fx median"
          % (name, best[(name, 1)] / best[(name, 2)], median[(name, 1)] / median[(name, 2)]))
PY
