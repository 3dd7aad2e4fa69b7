"""The Python module's speed on a bulk workload directory (bench/workloads/bulk.py): see python.sh."""
import json
import os
import sys
import time

import someip_parser_vaq as sp

SERVICE = 0x1234


def best(call, repeat=5):
    """The fastest of `repeat` runs, in seconds: the least disturbed by other work on the machine."""
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return min(times)


def main(directory):
    formats = sp.Formats(os.path.join(directory, "bulk.json"))
    with open(os.path.join(directory, "bulk.txt")) as f:
        items = [(SERVICE, int(m), 2, bytes.fromhex(h)) for m, h in (line.split() for line in f)]
    items = items[:20000]
    texts = [json.dumps(formats.decode(*i), separators=(",", ":"), ensure_ascii=False) for i in items]
    loads, decode = json.loads, formats.decode
    t_loads = best(lambda: [loads(t) for t in texts])
    t_decode = best(lambda: [decode(*i) for i in items])
    t_many = best(lambda: formats.decode_many(items))
    pcap = os.path.join(directory, "bulk.pcap")
    t_capture = best(lambda: sum(1 for _ in sp.read_capture(pcap, formats)), 3)
    records = sum(1 for _ in sp.read_capture(pcap, formats))
    t_lines = best(lambda: [loads(line) for line in sp.read_capture(pcap, formats, lines=True)], 3)
    t_frames = best(lambda: sp.capture_frames(pcap, formats), 3)
    n = len(items)
    print("| | per second | |")
    print("|---|---|---|")
    print("| json.loads of the compact text | {:,.0f} | |".format(n / t_loads))
    print("| Formats.decode | {:,.0f} | a call costs {:.2f}x json.loads |".format(n / t_decode, t_decode / t_loads))
    print("| Formats.decode_many | {:,.0f} | {:.2f}x json.loads |".format(n / t_many, t_many / t_loads))
    print("| read_capture, records | {:,.0f} | {:.2f}x the time of lines=True read by json.loads |".format(
        records / t_capture, t_capture / t_lines))
    print("| capture_frames, rows | {:,.0f} | |".format(records / t_frames))


if __name__ == "__main__":
    main(sys.argv[1])
