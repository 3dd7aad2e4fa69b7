#!/usr/bin/env python3
"""The report page as a browser shows it: a bulk capture with service discovery, an unknown service and a
broken payload added, and a format whose service name is hostile markup, reported by someip-json and
loaded in headless Chromium. Checks that the page's script ran without errors, that the tables hold the
expected counts, that every plot has drawn and that no markup got in; saves a screenshot.

usage: check_report_browser.py SOMEIP_JSON BULK_PY OUTDIR      exit 77 (skipped) without chromium
"""
import html.parser
import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile

N = 3000
START_US = 1_700_000_000 * 1_000_000  # where bulk.py's capture starts
HOSTILE = "Bulk<img src=x onerror=\"document.body.setAttribute('data-pwned','1')\">"


def frame(service, method, mtype, payload):
    someip = struct.pack(">HHIHHBBBB", service, method, 8 + len(payload), 0, 1, 1, 1, mtype, 0) + payload
    udp = struct.pack(">HHHH", 30490, 30490, 8 + len(someip), 0) + someip
    ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0x4000, 64, 17, 0, bytes((10, 0, 0, 3)),
                     bytes((10, 0, 0, 2)))
    return bytes.fromhex("020000000002020000000003" "0800") + ip + udp


def offer(ttl):
    entry = struct.pack(">BBBBHHB", 1, 0, 0, 0, 0x1234, 1, 1) + ttl.to_bytes(3, "big") + struct.pack(">I", 0)
    return frame(0xFFFF, 0x8100, 2, struct.pack(">B3xI", 0xC0, len(entry)) + entry + struct.pack(">I", 0))


def extra_frames():
    """(microseconds after the start, frame): three offers in one run, two unknown messages, a broken payload."""
    return ([(s * 1000000, offer(3)) for s in range(3)] +
            [(500000, frame(0x4321, 1, 0, b"\xaa\xbb")), (1500000, frame(0x4321, 1, 0, b"\xaa\xbb")),
             (2500000, frame(0x1234, 0x8001, 2, b"\x01\x02"))])


class Dom(html.parser.HTMLParser):
    """Tables by id (rows of cell texts), signal plots with their data paths, the body's attributes."""

    def __init__(self):
        super().__init__()
        self.tables, self.body, self.plots, self.tags, self.errors = {}, {}, [], set(), 0
        self.table = self.row = self.cell = None
        self.svg = None

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        self.tags.add(tag)
        self.errors += a.get("class") == "script-error"
        if tag == "body":
            self.body = a
        elif tag == "table":
            self.table = self.tables.setdefault(a.get("id", ""), [])
        elif tag == "tr" and self.table is not None:
            self.row = []
        elif tag == "td" and self.row is not None:
            self.cell = ""
        elif tag == "svg":
            self.svg = a.get("class")
            if self.svg == "signal":
                self.plots.append(0)
        elif tag == "path" and self.svg == "signal" and a.get("stroke") and a.get("d", "").count("M") == 1:
            self.plots[-1] += len(a["d"])

    def handle_endtag(self, tag):
        if tag == "td" and self.cell is not None:
            self.row.append(self.cell)
            self.cell = None
        elif tag == "tr" and self.row is not None:
            if self.row:
                self.table.append(self.row)
            self.row = None
        elif tag == "table":
            self.table = None
        elif tag == "svg":
            self.svg = None

    def handle_data(self, data):
        if self.cell is not None:
            self.cell += data


def make_capture(bulk_py, work):
    subprocess.run([sys.executable, bulk_py, work, str(N)], check=True)
    formats = os.path.join(work, "bulk.json")
    with open(formats, encoding="utf-8") as f:
        doc = json.load(f)
    doc["Services"][0]["ServiceName"] = HOSTILE
    with open(formats, "w", encoding="utf-8") as f:
        json.dump(doc, f)
    with open(os.path.join(work, "bulk.pcap"), "ab") as pcap:
        for offset, data in extra_frames():
            sec, usec = divmod(START_US + offset, 1000000)
            pcap.write(struct.pack("<IIII", sec, usec, len(data), len(data)) + data)
    return os.path.join(work, "bulk.pcap"), formats


def chromium(browser, page, work, *args):
    profile = tempfile.mkdtemp(dir=work)
    argv = [browser, "--headless", "--no-sandbox", "--disable-gpu", "--user-data-dir=" + profile, *args,
            "file://" + page]
    return subprocess.run(argv, check=True, capture_output=True, text=True, timeout=90).stdout


def check(dom):
    problems = []
    expect = lambda ok, what: ok or problems.append(what)
    expect(dom.body.get("data-report-ready") == "1", "the page's script did not run to its end")
    expect("data-pwned" not in dom.body and "img" not in dom.tags, "markup from a name got into the page")
    expect(dom.errors == 0, "%d script errors (see #script-errors in the page)" % dom.errors)
    messages = dom.tables.get("message-table", [])
    counts = {(r[0], r[2]): int(r[5]) for r in messages}
    expect(sum(v for (s, _), v in counts.items() if s == "0x1234") == N + 1, "bulk counts: %s" % counts)
    expect(counts.get(("0xffff", "0x8100")) == 3, "service discovery messages: %s" % counts)
    expect(all(HOSTILE in r[1] for r in messages if r[0] == "0x1234"), "the hostile name is not shown as text")
    unknown = dom.tables.get("unknown-table", [])
    expect([(r[0], int(r[5])) for r in unknown] == [("0x4321", 2)], "unknown messages: %s" % unknown)
    sd = dom.tables.get("sd-table", [])
    expect([(r[2], int(r[7])) for r in sd] == [("offer-service", 3)], "SD runs: %s" % sd)
    failures = {r[0]: int(r[1]) for r in dom.tables.get("failures", [])}
    expect(failures.get("unknown_message") == 2 and sum(failures.values()) == 3, "failures: %s" % failures)
    expect(len(dom.plots) == 50 and all(n > 100 for n in dom.plots), "signal plots: %s" % dom.plots)
    return problems


def main():
    tool, bulk_py, out = sys.argv[1:4]
    browser = shutil.which("chromium")
    if browser is None:
        print("chromium is not installed: skipped")
        return 77
    with tempfile.TemporaryDirectory() as work:
        pcap, formats = make_capture(bulk_py, work)
        page = os.path.join(work, "report.html")
        subprocess.run([tool, "report", pcap, "--formats", formats, "-o", page, "--quiet", "--allow-failures"], check=True)
        dom = Dom()
        dom.feed(chromium(browser, page, work, "--dump-dom"))
        shot = os.path.join(out, "report_browser.png")
        chromium(browser, page, work, "--window-size=1280,2000", "--screenshot=" + shot)
    problems = check(dom)
    for p in problems:
        print("FAIL:", p)
    print("screenshot:", shot)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
