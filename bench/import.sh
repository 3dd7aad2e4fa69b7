#!/usr/bin/env bash
# Import speed and memory: a generated ARXML of 2,000 services and 20,000 methods and events (bench/gen_arxml.py,
# one file, the same split over three files, and the same laid out an element a line as exports are) through
# `someip-json import ... -o one.json`, Release build. Prints a Markdown
# table: input size, median wall time of 3 runs, MB/s, and peak memory as a multiple of the input size.
#   usage: bench/import.sh [SERVICES [ELEMENTS]]
set -euo pipefail
cd "$(dirname "$0")/.."

SERVICES="${1:-2000}"
ELEMENTS="${2:-20000}"
B="$PWD/build-release"
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip-json >/dev/null
W="$B/import-bench"
rm -rf "$W" && mkdir -p "$W"
python3 bench/gen_arxml.py --services "$SERVICES" --elements "$ELEMENTS" "$W/one.arxml"
python3 bench/gen_arxml.py --services "$SERVICES" --elements "$ELEMENTS" --split "$W/split"
python3 bench/gen_arxml.py --services "$SERVICES" --elements "$ELEMENTS" --indent "$W/indented.arxml"

python3 - "$B/tools/someip-json" "$W" <<'PY'
import os, resource, statistics, subprocess, sys, time

tool, work = sys.argv[1], sys.argv[2]
inputs = {"one file": [os.path.join(work, "one.arxml")],
          "three files": sorted(os.path.join(work, "split", f) for f in os.listdir(os.path.join(work, "split"))),
          "one file, indented": [os.path.join(work, "indented.arxml")]}
print("| Input | Size | Time (median of 3) | Speed | Peak memory | Memory/input | Report |")
print("|---|---|---|---|---|---|---|")
for label, files in inputs.items():
    size = sum(os.path.getsize(f) for f in files)
    times, peaks = [], []
    for run in range(3):
        out = os.path.join(work, "out%d.json" % run)
        # Each run in a child of its own, so that its peak is its own: ru_maxrss of the waited-for child.
        start = time.perf_counter()
        pid = os.fork()
        if pid == 0:
            os.dup2(os.open(os.devnull, os.O_WRONLY), 2)
            os.execv(tool, [tool, "import", *files, "-o", out, "--quiet", "--report", out + ".report.json"])
        _, status, usage = os.wait4(pid, 0)
        times.append(time.perf_counter() - start)
        peaks.append(usage.ru_maxrss * 1024)
        if status != 0:
            sys.exit("import failed: exit status %d" % status)
    summary = subprocess.run([tool, "import", *files, "-o", os.path.join(work, "last.json"), "--quiet"],
                             capture_output=True, text=True).stderr.strip().replace("import: ", "")
    t, peak = statistics.median(times), max(peaks)
    print("| %s | %.1f MB | %.2f s | %.1f MB/s | %.1f MB | %.2fx | %s |" %
          (label, size / 1e6, t, size / 1e6 / t, peak / 1e6, peak / size, summary))
print("\nTargets: >= 50 MB/s of input, peak memory <= 4x the input size.")
PY
