"""examples/dask/decode_captures.py on a local cluster of two worker processes: its files hold what one
process reads from the same captures, and a damaged capture is reported with its lines kept."""
import json
import os
import subprocess
import sys

import pytest
from conftest import BULK_FORMATS, ROOT, generate_capture

SCRIPT = os.path.join(ROOT, "examples", "dask", "decode_captures.py")


def test_two_workers_decode_what_one_process_decodes(sp, bulk_formats, tmp_path):
    pytest.importorskip("distributed")
    inputs = tmp_path / "in"
    inputs.mkdir()
    for seed in range(1, 5):
        os.replace(generate_capture(tmp_path / str(seed), 2000, seed), inputs / ("capture%d.pcap" % seed))
    whole = (inputs / "capture1.pcap").read_bytes()
    (inputs / "cut.pcap").write_bytes(whole[:len(whole) // 2])

    run = subprocess.run([sys.executable, SCRIPT, str(inputs), "--formats", BULK_FORMATS,
                          "--out", str(tmp_path / "out"), "--workers", "2", "--quiet"],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=240)
    assert run.returncode == 1, run.stderr.decode()  # the cut capture
    summary = json.loads(run.stdout)
    assert summary["workers"] == 2 and summary["files"] == 5

    rows = {os.path.basename(row["file"]): row for row in summary["captures"]}
    for name, row in rows.items():
        expected = []
        records = sp.read_capture(str(inputs / name), bulk_formats, lines=True)
        try:
            expected.extend(records)
        except sp.Error as error:
            assert row["error"] == str(error)
        else:
            assert row["error"] is None
        assert (tmp_path / "out" / name.replace(".pcap", ".jsonl")).read_text().splitlines() == expected, name
        assert (row["lines"], row["decoded"], row["failed"]) == (len(expected), len(expected), 0)
    assert rows["cut.pcap"]["error"].startswith("capture_damaged")
    assert 0 < rows["cut.pcap"]["lines"] < 2000
    assert summary["lines"] == summary["decoded"] == 8000 + rows["cut.pcap"]["lines"]


@pytest.mark.parametrize("case", ["no module", "no formats", "no captures"])
def test_what_is_missing_is_one_line_and_status_2(tmp_path, case):
    pytest.importorskip("distributed")
    pcap = generate_capture(tmp_path, 10)
    env = dict(os.environ)
    formats, inputs = BULK_FORMATS, [pcap]
    if case == "no module":
        env["PYTHONPATH"] = ""
    elif case == "no formats":
        formats = str(tmp_path / "absent.json")
    else:
        inputs = [str(tmp_path / "*.pcapng")]
    run = subprocess.run([sys.executable, SCRIPT, *inputs, "--formats", formats, "--out", str(tmp_path / "out")],
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env, timeout=60)
    assert run.returncode == 2
    assert len(run.stderr.decode().splitlines()) == 1, run.stderr.decode()
