"""Results as Python objects built without the json module, and captures as pandas frames."""
import json
import os
import subprocess
import sys

import pytest
from conftest import BULK_FORMATS, generate_capture, tool_lines

SERVICE = 0x1234


@pytest.fixture(scope="module")
def bulk(tmp_path_factory):
    """3,000 bulk messages: the capture, its tool lines (the reference) and the payloads as items."""
    directory = tmp_path_factory.mktemp("bulk")
    pcap = generate_capture(directory, 3000, seed=7)
    with open(os.path.join(str(directory), "bulk.txt")) as f:
        items = [(SERVICE, int(m), 2, bytes.fromhex(h)) for m, h in (line.split() for line in f)]
    return pcap, tool_lines(pcap, BULK_FORMATS), items


def same(a, b):
    # json.dumps tells 1 from 1.0 and True from 1, which == does not.
    return json.dumps(a) == json.dumps(b)


def test_decoded_objects_equal_the_json_modules_reading(sp, bulk_formats, bulk):
    pcap, lines, items = bulk
    reference = [json.loads(line)["payload"] for line in lines]
    assert same([bulk_formats.decode(*item) for item in items], reference)
    assert same(bulk_formats.decode_many(items), reference)
    assert same(list(sp.read_capture(pcap, bulk_formats)), [json.loads(line) for line in lines])


def test_frames_hold_one_row_per_message_and_one_column_per_leaf(sp, bulk_formats, bulk):
    import numpy as np

    pcap, lines, _ = bulk
    records = [json.loads(line) for line in lines]
    frames = sp.capture_frames(pcap, bulk_formats)
    assert sorted(frames) == ["BulkService.Bulk_asPoint", "BulkService.Bulk_asText", "BulkService.Bulk_asU32"]
    assert sum(len(f) for f in frames.values()) == len(records)
    for name, frame in frames.items():
        rows = [r for r in records if r["method_name"] == name.split(".")[1]]
        assert len(frame) == len(rows)
        first = frame.iloc[0]
        assert first["frame"] == rows[0]["frame"] and first["session"] == rows[0]["session"]
        assert first["time"] == np.datetime64(rows[0]["time"].rstrip("Z"), "ns")
        for key, value in rows[0]["payload"].items():
            if isinstance(value, dict):
                continue
            got = first[key]
            assert (list(got) if isinstance(value, list) else got) == value, key
        assert frame["time"].dtype == np.dtype("datetime64[ns]")
        assert (frame["u64"].dtype, frame["f64"].dtype, frame["flag"].dtype) == (np.uint64, np.float64, np.bool_)


def test_frames_are_selected_by_name_or_id(sp, bulk_formats, bulk):
    pcap = bulk[0]
    assert list(sp.capture_frames(pcap, bulk_formats, ["BulkService.Bulk_asU32"])) == ["BulkService.Bulk_asU32"]
    assert list(sp.capture_frames([pcap], bulk_formats, select=["0x1234.0x8002"])) == ["BulkService.Bulk_asText"]
    assert sp.capture_frames(pcap, bulk_formats, ["Nothing.Here"]) == {}
    with pytest.raises(sp.Error) as caught:
        sp.capture_frames(pcap + ".missing", bulk_formats)
    assert caught.value.code == "file_error"


def test_the_module_imports_without_pandas_and_says_what_frames_need(bulk):
    script = ("import sys; sys.modules['pandas'] = None\n"
              "import someip_parser_vaq as sp\n"
              "f = sp.Formats(sys.argv[1])\n"
              "try:\n    sp.capture_frames(sys.argv[2], f)\n"
              "except ImportError as e:\n    print(e)\n")
    run = subprocess.run([sys.executable, "-c", script, BULK_FORMATS, bulk[0]], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, check=True, env=os.environ)
    assert "python3-pandas" in run.stdout.decode()


def test_the_plotting_example_writes_an_image(bulk_formats, tmp_path):
    pytest.importorskip("matplotlib")
    pcap = generate_capture(tmp_path, 300)
    example = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "python", "plot_signal.py")
    image = str(tmp_path / "plot.png")
    subprocess.run([sys.executable, example, pcap, "--formats", BULK_FORMATS, "--signal", "BulkService.Bulk_asU32.u16",
                    "--signal", "0x1234.0x8003.flag", "-o", image], check=True, env=os.environ,
                   stdout=subprocess.DEVNULL)
    with open(image, "rb") as f:
        assert f.read(8) == b"\x89PNG\r\n\x1a\n"
