#!/usr/bin/env python3
"""Memory stays flat however long the capture: `someip-json capture -` decodes a capture of BYTES bytes
written on the fly into its standard input (tests/endless_pcap.py) with its peak resident memory under
LIMIT_MB, and writes every line.

usage: check_flat_memory.py TOOL BULK_GENERATOR WORKDIR [BYTES=1e9] [LIMIT_MB=64] [TOOL OPTIONS...]
"""
import os
import subprocess
import sys
import time


def main():
    tool, generator, work = sys.argv[1:4]
    size = int(float(sys.argv[4])) if len(sys.argv) > 4 else 10**9
    limit_mb = float(sys.argv[5]) if len(sys.argv) > 5 else 64
    extra = sys.argv[6:]
    os.makedirs(work, exist_ok=True)
    subprocess.run([sys.executable, generator, work, "2000"], check=True, stdout=subprocess.DEVNULL)
    endless = os.path.join(os.path.dirname(os.path.abspath(__file__)), "endless_pcap.py")
    start = time.monotonic()
    feed = subprocess.Popen([sys.executable, endless, os.path.join(work, "bulk.pcap"), str(size)], stdout=subprocess.PIPE)
    decode = subprocess.Popen([tool, "capture", "-", "--formats", os.path.join(work, "bulk.json"), "--quiet", "--allow-failures"] + extra,
                              stdin=feed.stdout, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    feed.stdout.close()
    err = decode.stderr.read().decode()
    _, status, usage = os.wait4(decode.pid, 0)
    feed.wait()
    peak_mb = usage.ru_maxrss / 1024
    print("%.1f GB in %.1f s, peak resident memory %.1f MB (bound %.0f MB)" %
          (size / 1e9, time.monotonic() - start, peak_mb, limit_mb))
    print(err.strip())
    if os.WEXITSTATUS(status) != 0 or feed.returncode != 0:
        sys.exit("the decode failed")
    if " 0 lines" in err:
        sys.exit("no lines were written")
    if peak_mb > limit_mb:
        sys.exit("peak resident memory %.1f MB is over %.0f MB" % (peak_mb, limit_mb))


if __name__ == "__main__":
    main()
