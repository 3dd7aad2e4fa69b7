#!/usr/bin/env bash
# End-to-end capture decoding, side by side in one run: `someip-json capture` (plain compact JSON lines)
# against a generic dissector (tshark -T json, installed here from Debian if missing; never a build
# dependency) on the bulk capture that bench/workloads/bulk.py writes.
#   usage: bench/capture_vs_dissector.sh [N]    N messages (default 100000, or $BULK_N)
set -euo pipefail
cd "$(dirname "$0")/.."

N="${1:-${BULK_N:-100000}}"
B="$PWD/build-release"
if ! command -v tshark >/dev/null 2>&1; then
  echo "installing tshark for the comparison..." >&2
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  echo "wireshark-common wireshark-common/install-setuid boolean false" | $SUDO debconf-set-selections
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends tshark >/dev/null
fi
cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip-json >/dev/null
python3 bench/workloads/bulk.py "$B/workload" "$N"
pcap="$B/workload/bulk.pcap"
formats="$B/workload/bulk.json"

# Three runs each, interleaved so that outside load lands on both alike; the best wall-clock time and
# the best processor time (user + system) of each are reported.
python3 - "$N" "$pcap" "$formats" "$B" <<'PY'
import os, resource, subprocess, sys, time
n, pcap, formats, out = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4]
size = os.path.getsize(pcap)
commands = {
    "someip-json capture (plain JSON lines)":
        ([out + "/tools/someip-json", "capture", pcap, "--formats", formats, "--quiet", "--allow-failures"], out + "/capture.jsonl"),
    "someip-json capture --jobs 1":
        ([out + "/tools/someip-json", "capture", pcap, "--formats", formats, "--quiet", "--allow-failures", "--jobs", "1"],
         out + "/capture1.jsonl"),
    "tshark -T json (headers only)": (["tshark", "-r", pcap, "-T", "json"], out + "/tshark.json"),
}
best = {name: [float("inf"), float("inf")] for name in commands}
for _ in range(3):
    for name, (argv, target) in commands.items():
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        start = time.monotonic()
        with open(target, "wb") as sink:
            subprocess.run(argv, stdout=sink, stderr=subprocess.DEVNULL, check=True)
        wall = time.monotonic() - start
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
        best[name] = [min(best[name][0], wall), min(best[name][1], cpu)]
lines = sum(1 for _ in open(out + "/capture.jsonl"))
print("\n%d messages, capture %.1f MB; best of 3 runs each, side by side in one run.\n" % (n, size / 1e6))
print("| Decoder | Wall time | Messages/s | MB/s | Processor time | Messages per processor second |")
print("|---|---|---|---|---|---|")
for name, (wall, cpu) in best.items():
    print("| %s | %.2f s | %s | %.1f | %.2f s | %s |" % (name, wall, "{:,.0f}".format(n / wall), size / 1e6 / wall,
                                                       cpu, "{:,.0f}".format(n / cpu)))
ours, theirs = best["someip-json capture (plain JSON lines)"], best["tshark -T json (headers only)"]
one = best["someip-json capture --jobs 1"]
print("\nRatio: %.1fx by wall time, %.1fx by processor time (target >= 30x); %d JSON lines written."
      % (theirs[0] / ours[0], theirs[1] / ours[1], lines))
print("Every core (%d) against one job: %.2fx by wall time; one job against the dissector: %.1fx."
      % (os.cpu_count(), one[0] / ours[0], theirs[0] / one[0]))
PY
