#!/usr/bin/python3
"""Decode many capture files in parallel on a Dask cluster: one JSON-lines file per capture.

usage: decode_captures.py INPUT... --formats PATH --out DIR [--workers N | --scheduler ADDRESS]
                          [--port P]... [--quiet] [--allow-failures]

INPUT is a capture file (pcap, pcapng), a directory (its *.pcap and *.pcapng files) or a glob pattern.
Each capture becomes DIR/<name>.jsonl holding the lines `someip-json capture FILE --formats PATH` writes
for it. Without --scheduler a local cluster of N worker processes is started on this machine; with it,
the work goes to that cluster, whose workers must have the someip_parser_vaq module and read the
captures, the formats and DIR at the same paths as here.

Every worker loads the format set once (a worker plugin) and decodes one capture at a time with it.
The summary (JSON on standard output) has the totals (messages, lines, decoded, failed, seconds) and a
row per capture. Exit status, as for someip-json: 0 everything decoded; 1 a capture damaged or
unreadable (its row says why; the lines before the damage are written) or messages that failed to
decode (the summary counts them; --allow-failures keeps 0 for them); 2 bad arguments, no captures,
formats that do not load, or the module missing (one line says what).
"""
import argparse
import glob
import json
import os
import sys
import time

try:
    from distributed import Client, LocalCluster, WorkerPlugin, get_worker
except ImportError:
    sys.exit("decode_captures: Dask's distributed scheduler is not installed (Debian: python3-distributed)")

PLUGIN = "someip-formats"


class FormatsPlugin(WorkerPlugin):
    """Loads the format set when a worker starts (and when one joins later) and keeps it for its tasks."""

    def __init__(self, path):
        self.path = path
        self.formats = None

    def setup(self, worker):
        import someip_parser_vaq

        self.formats = someip_parser_vaq.Formats(self.path)


def decode_capture(path, out_path, ports):
    """On a worker: one capture to its JSON-lines file. Returns its summary row."""
    import someip_parser_vaq

    formats = get_worker().plugins[PLUGIN].formats
    row = {"file": path, "output": out_path, "error": None}
    start = time.perf_counter()
    records = None
    try:
        records = someip_parser_vaq.read_capture(path, formats, ports=ports or None, lines=True)
        with open(out_path, "w", encoding="utf-8") as out:
            for line in records:
                out.write(line)
                out.write("\n")
    except someip_parser_vaq.Error as error:
        row["error"] = str(error)
    stats = records.stats if records is not None else {}
    row.update({key: stats.get(key, 0) for key in ("messages", "lines", "decoded", "failed")})
    row["seconds"] = round(time.perf_counter() - start, 3)
    return row


def captures(inputs):
    """The capture files the inputs name, largest first so that the long ones start early."""
    found = []
    for item in inputs:
        if os.path.isdir(item):
            names = [os.path.join(item, n) for n in sorted(os.listdir(item)) if n.endswith((".pcap", ".pcapng"))]
        elif os.path.exists(item):
            names = [item]
        else:
            names = sorted(glob.glob(item))
            if not names:
                usage("no capture matches %s" % item)
        found.extend(os.path.abspath(n) for n in names if os.path.isfile(n))
    found = list(dict.fromkeys(found))
    return sorted(found, key=os.path.getsize, reverse=True)


def output_names(files, out_dir):
    outputs = {}
    for path in files:
        out = os.path.join(out_dir, os.path.splitext(os.path.basename(path))[0] + ".jsonl")
        if out in outputs.values():
            usage("two captures would both write %s; rename one" % out)
        outputs[path] = out
    return outputs


def usage(message):
    """Bad arguments or unreadable input: one line, exit status 2."""
    sys.stderr.write("decode_captures: %s\n" % message)
    sys.exit(2)


def check_formats(path):
    """The module and the formats, tried here once so that a missing piece is one line, not a worker's
    traceback."""
    try:
        import someip_parser_vaq
    except ImportError:
        usage("the module someip_parser_vaq is not on the Python path: build it and set "
              "PYTHONPATH=<build>/python, or install the .deb")
    if not os.path.exists(path):
        usage("no format file or directory at %s" % path)
    try:
        someip_parser_vaq.Formats(path)
    except someip_parser_vaq.Error as e:
        usage("the formats do not load: %s" % e)


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("inputs", nargs="+", metavar="INPUT", help="capture file, directory or glob pattern")
    parser.add_argument("--formats", required=True, help="format description file, or a directory tree of them")
    parser.add_argument("--out", required=True, help="directory for the JSON-lines files")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--workers", type=int, default=os.cpu_count() or 1,
                       help="worker processes of the local cluster (default: one per core)")
    where.add_argument("--scheduler", help="address of a running Dask scheduler, e.g. tcp://10.0.0.5:8786")
    parser.add_argument("--port", type=int, action="append", default=[],
                        help="UDP/TCP port carrying SOME/IP (repeatable); default: any consistent one")
    parser.add_argument("--quiet", action="store_true", help="no summary line on standard error")
    parser.add_argument("--allow-failures", action="store_true",
                        help="exit 0 even when messages fail to decode (exploratory runs)")
    args = parser.parse_args(argv)

    files = captures(args.inputs)
    if not files:
        usage("no captures found in " + " ".join(args.inputs))
    formats = os.path.abspath(args.formats)
    check_formats(formats)
    out_dir = os.path.abspath(args.out)
    os.makedirs(out_dir, exist_ok=True)
    outputs = output_names(files, out_dir)

    started = time.perf_counter()
    if args.scheduler:
        client = Client(args.scheduler)
        cluster = None
    else:
        # Processes, one thread each: every capture is decoded by one process at full speed.
        cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        client.register_worker_plugin(FormatsPlugin(formats), name=PLUGIN)
        workers = len(client.scheduler_info()["workers"])
        ready = time.perf_counter()
        futures = client.map(decode_capture, files, [outputs[f] for f in files], [args.port] * len(files),
                             pure=False)
        rows = client.gather(futures)
        finished = time.perf_counter()
    finally:
        client.close()
        if cluster is not None:
            cluster.close()

    totals = {key: sum(row[key] for row in rows) for key in ("messages", "lines", "decoded", "failed")}
    seconds = finished - ready
    summary = dict(files=len(rows), workers=workers, **totals, seconds=round(seconds, 3),
                   lines_per_second=round(totals["lines"] / seconds) if seconds > 0 else None,
                   startup_seconds=round(ready - started, 3),
                   captures=sorted(rows, key=lambda row: row["file"]))
    json.dump(summary, sys.stdout, indent=1)
    sys.stdout.write("\n")
    failed_files = [row for row in rows if row["error"]]
    if not args.quiet:
        sys.stderr.write("decode_captures: %d captures on %d workers, %d messages, %d lines, %d decoded, %d failed "
                         "in %.2f s (%.0f lines/s; cluster ready after %.2f s)\n"
                         % (len(rows), workers, totals["messages"], totals["lines"], totals["decoded"], totals["failed"],
                            seconds, totals["lines"] / seconds if seconds > 0 else 0, ready - started))
        for row in failed_files:
            sys.stderr.write("decode_captures: %s: %s\n" % (row["file"], row["error"]))
    # One rule with someip-json: 1 when a capture is damaged or a message failed, unless failures are allowed.
    return 1 if failed_files or (totals["failed"] > 0 and not args.allow_failures) else 0


if __name__ == "__main__":
    sys.exit(main())
