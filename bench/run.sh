#!/usr/bin/env bash
# Fast paths against the reference converters: Release build, the bulk workload, the benchmarks and the
# memory probe, then a Markdown summary. Run from anywhere; works in the repository root.
#   usage: bench/run.sh [N]     N messages of the bulk workload (default 100000, or $BULK_N)
# Raw results stay in build-release/: bench_bulk.json, mem_fast.txt, mem_reference.txt.
set -euo pipefail
cd "$(dirname "$0")/.."

N="${1:-${BULK_N:-100000}}"
B="$PWD/build-release"
MIN_TIME="${BENCH_MIN_TIME:-0.3}"
REPS="${BENCH_REPETITIONS:-3}"

cmake -S . -B "$B" -DCMAKE_BUILD_TYPE=Release -DSOMEIP_BUILD_TESTS=OFF >/dev/null
cmake --build "$B" -j2 --target someip_bulk_bench someip_mem_probe >/dev/null
python3 bench/workloads/bulk.py "$B/workload" "$N"

unset SOMEIPSER_LOG_LEVEL
export SOMEIP_BULK_DIR="$B/workload"
export SOMEIP_BULK_FORMAT="$B/workload/bulk.json"
export SOMEIP_BENCH_TMP="$B"

# Repetitions in random order, reported as medians: the machines are shared, and interleaving spreads a
# burst of outside load over fast and reference runs alike instead of landing on one of them.
echo "benchmarks ($REPS x min time ${MIN_TIME}s each, $N messages)..." >&2
"$B/bench/someip_bulk_bench" --benchmark_min_time="$MIN_TIME" --benchmark_repetitions="$REPS" \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
    --benchmark_format=json >"$B/bench_bulk.json"
echo "memory probe..." >&2
"$B/bench/someip_mem_probe" >"$B/mem_fast.txt"
"$B/bench/someip_mem_probe" --reference >"$B/mem_reference.txt"

python3 - "$B" "$N" "$REPS" <<'EOF'
import json, re, sys

out, n = sys.argv[1], int(sys.argv[2])
# The medians, by run name (a benchmark with its own minimum time carries it in its name; drop it).
runs = {re.sub(r"/min_time:[0-9.]+$", "", b["run_name"]): b
        for b in json.load(open(out + "/bench_bulk.json"))["benchmarks"] if b.get("aggregate_name") == "median"}
SCALE = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}

def run(name):
    b = runs.get(name)
    if b is None or b.get("error_occurred"):
        sys.exit("%s: %s" % (name, b.get("error_message") if b else "missing from the results"))
    return b

def seconds(name):
    b = run(name)
    return b["real_time"] * SCALE[b["time_unit"]]

def rate(name):
    return run(name)["items_per_second"]

def probe(path):
    return {k: v for k, v in (line.split() for line in open(path))}

def fmt_time(s):
    return "%.1f µs" % (s * 1e6) if s < 1e-3 else "%.2f ms" % (s * 1e3)

rows = []
for what, name, goal in (("Decode", "BM_BulkDecode", ">= 20x"), ("Encode", "BM_BulkEncode", ">= 5x")):
    ref, fast = rate(name + "/fast:0"), rate(name + "/fast:1")
    rows.append(("%s, messages/s" % what, "{:,.0f}".format(ref), "{:,.0f}".format(fast),
                 "%.2fx fast/reference" % (fast / ref), goal))
for what, name, goal in (("Plain decode (compact), messages/s", "BM_PlainDecode", ">= 500,000/s"),
                         ("Plain encode, messages/s", "BM_PlainEncode", ">= 300,000/s")):
    plain, classic = rate(name), rate(name.replace("Plain", "Bulk") + "/fast:1")
    rows.append((what, "", "{:,.0f}".format(plain), "%.2fx the classic fast path" % (plain / classic), goal))
# The plain codec's compiled program against the decoder and the encoder it falls back to.
for what, name, goal in (("Plain decode (compact), program vs reference decoder", "BM_PlainDecode", ">= 3x"),
                         ("Plain encode, program vs reference encoder", "BM_PlainEncode", ">= 2x")):
    ref, fast = rate(name + "Reference"), rate(name)
    rows.append((what + ", messages/s", "{:,.0f}".format(ref), "{:,.0f}".format(fast),
                 "%.2fx program/reference" % (fast / ref), goal))
# The generated version-2 workload of every construct (built by the benchmark itself), against the bulk plain rows.
for what, name in (("Plain decode and encode, every construct: decode, messages/s", "BM_PlainConstructsDecode"),
                   ("Plain decode and encode, every construct: encode, messages/s", "BM_PlainConstructsEncode")):
    plain = rate(name)
    rows.append((what, "", "{:,.0f}".format(plain),
                 "%.2fx the bulk plain row" % (plain / rate(name.replace("Constructs", ""))), ""))
lookup = {(s, f): seconds("BM_Lookup/services:%d/fast:%d" % (s, f)) for s in (1, 10000) for f in (0, 1)}
rows.append(("Lookup, 1 service (per decode)", fmt_time(lookup[1, 0]), fmt_time(lookup[1, 1]), "", ""))
rows.append(("Lookup, 10,000 services (per decode)", fmt_time(lookup[10000, 0]), fmt_time(lookup[10000, 1]),
             "%.2fx fast 10,000/1 (reference %.0fx)" % (lookup[10000, 1] / lookup[1, 1],
                                                       lookup[10000, 0] / lookup[1, 0]), "<= 2x"))
for label, first in (("Load 10,000 services", 0), ("Load 10,000 services + first decode", 1)):
    ref, fast = (seconds("BM_Load/fast:%d/first_decode:%d" % (f, first)) for f in (0, 1))
    rows.append((label, fmt_time(ref), fmt_time(fast), "%.2fx fast/reference" % (fast / ref),
                 "<= 1x" if first == 0 else ""))
mem = {p: probe("%s/mem_%s.txt" % (out, p)) for p in ("reference", "fast")}
rows.append(("Memory, 1,000,000-byte vector: output text",
             "{:,} B".format(int(mem["reference"]["output_bytes"])), "{:,} B".format(int(mem["fast"]["output_bytes"])),
             "", ""))
rows.append(("Memory: peak RSS",
             "{:,} B".format(int(mem["reference"]["peak_rss_bytes"])), "{:,} B".format(int(mem["fast"]["peak_rss_bytes"])),
             "%.2fx fast peak/output (reference %.2fx)" % (float(mem["fast"]["peak_over_output"]),
                                                          float(mem["reference"]["peak_over_output"])), "<= 2x"))

print("\n%d bulk messages; medians of %s repetitions, ratios within this run.\n" % (n, sys.argv[3]))
print("| Measure | Reference | Fast | Measured | Target |")
print("|---|---|---|---|---|")
for row in rows:
    print("| " + " | ".join(row) + " |")
for name in ("BM_BulkDecode/fast:1", "BM_BulkEncode/fast:1"):
    bad = run(name).get("mismatches", 0)
    if bad:
        print("\n%s: the fast path disagrees with the reference on %d of the first 1,000 messages." % (name, bad))
print("\nBaseline RSS before decoding (memory probe): reference {:,} B, fast {:,} B.".format(
    int(mem["reference"]["baseline_rss_bytes"]), int(mem["fast"]["baseline_rss_bytes"])))
EOF
