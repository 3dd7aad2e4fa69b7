"""The module over the example formats and the bulk workload: plain and classic conversions, the
errors they raise, buffers without copies, batches, threads, and captures read as the tool reads them."""
import json
import struct
from concurrent.futures import ThreadPoolExecutor

import pytest
from conftest import BULK_FORMATS, generate_capture, tool_lines

ROUTE = (0x1234, 2, 0x80)
SAMPLE = bytes.fromhex("070000001400080064000000ceffffff0800ecffffff2c010000ffff00004841")
DECODED = {"routeId": 7, "waypoints": [{"x": 100, "y": -50}, {"x": -20, "y": 300}], "lengthKm": 12.5}


def test_plain_round_trip(formats):
    assert formats.decode(*ROUTE, SAMPLE) == DECODED
    assert formats.encode(*ROUTE, DECODED) == SAMPLE
    assert formats.encode(*ROUTE, json.dumps(DECODED)) == SAMPLE  # the JSON text itself


@pytest.mark.parametrize("wrap", [bytearray, memoryview, lambda b: memoryview(b"\xff\xff" + b)[2:]],
                         ids=["bytearray", "memoryview", "memoryview-slice"])
def test_decode_reads_any_contiguous_buffer(formats, wrap):
    assert formats.decode(*ROUTE, wrap(SAMPLE)) == DECODED


def test_decode_refuses_what_is_not_contiguous_bytes(formats):
    with pytest.raises(TypeError):
        formats.decode(*ROUTE, SAMPLE.hex())
    with pytest.raises(BufferError):
        formats.decode(*ROUTE, memoryview(SAMPLE)[::2])


# (call, route, input, code, offset, path): a decode error has a byte offset, an encode error a JSON path.
ERRORS = [
    ("decode", ROUTE, SAMPLE[:5], "truncated", 4, None),
    ("decode", (0x1234, 99, 0x80), SAMPLE, "unknown_message", 0, None),
    ("encode", ROUTE, {**DECODED, "waypoints": [{"x": 100, "y": "a"}]}, "wrong_type", None, "$.waypoints[0].y"),
    ("encode", ROUTE, {"routeId": 7}, "missing_member", None, "$.waypoints"),
    ("encode", ROUTE, {**DECODED, "routeId": -1}, "out_of_range", None, "$.routeId"),
    ("encode", ROUTE, "{", "bad_json", None, "$"),
]


@pytest.mark.parametrize("call,route,value,code,offset,path", ERRORS, ids=[row[3] for row in ERRORS])
def test_errors_carry_code_and_place(sp, formats, call, route, value, code, offset, path):
    with pytest.raises(sp.Error) as caught:
        getattr(formats, call)(*route, value)
    error = caught.value
    assert (error.code, error.offset, error.path) == (code, offset, path)
    assert error.message and error.message in str(error)


def test_appended_bytes_are_skipped(sp, formats):
    # A newer peer may append parameters: the known ones still decode, unless strict.
    assert formats.decode(*ROUTE, SAMPLE + b"\0") == formats.decode(*ROUTE, SAMPLE)
    with pytest.raises(sp.Error) as caught:
        formats.decode(*ROUTE, SAMPLE + b"\0", strict=True)
    assert (caught.value.code, caught.value.offset) == ("trailing_bytes", 32)
    failed, = formats.decode_many([(*ROUTE, SAMPLE + b"\0")], return_errors=True, strict=True)
    assert failed.code == "trailing_bytes"


# Service 4660 at interface versions 1 and 2; event 32769 of version 1 has an enum and a scaled member.
CLIMATE = {"FormatVersion": 2, "Services": [
    {"ServiceName": "Climate", "ServiceID": "4660", "MajorVersion": 1, "Events": [
        {"EventName": "Cabin", "EventID": "32769", "Params": [{"MethodType": "event", "ParamsDetails": [
            {"ParamName": "mode", "ParamType": "uint8_t", "Enumerators": [{"Name": "AUTO", "Value": 3}]},
            {"ParamName": "temp", "ParamType": "uint8_t", "Scale": {"Factor": 0.5, "Offset": -10, "Unit": "degC"}},
        ]}]}]},
    {"ServiceName": "Climate", "ServiceID": "4660", "MajorVersion": 2, "Events": [
        {"EventName": "CabinV2", "EventID": "32769", "Params": [{"MethodType": "event", "ParamsDetails": [
            {"ParamName": "mode", "ParamType": "uint8_t"}]}]}]},
]}
CABIN = (4660, 32769, 2)


@pytest.fixture
def climate(sp, tmp_path):
    path = tmp_path / "climate.json"
    path.write_text(json.dumps(CLIMATE))
    return sp.Formats(str(path))


def test_enum_and_scaled_styles(climate):
    assert climate.decode(*CABIN, b"\x03\x41") == {"mode": "AUTO", "temp": 65}
    assert climate.decode(*CABIN, b"\x03\x41", enum_style="both", scaled="physical") == \
        {"mode": {"name": "AUTO", "value": 3}, "temp": 22.5}
    assert climate.decode_many([(*CABIN, b"\x03\x41")], enum_style="value", scaled="both") == \
        [{"mode": 3, "temp": {"raw": 65, "value": 22.5, "unit": "degC"}}]
    assert climate.encode(*CABIN, {"mode": "AUTO", "temp": 22.5}, scaled="physical") == b"\x03\x41"


@pytest.mark.parametrize("call", [
    lambda f: f.decode(*CABIN, b"", enum_style="names"),
    lambda f: f.decode_many([], scaled="kelvin"),
    lambda f: f.encode(*CABIN, {}, scaled="kelvin"),
], ids=["decode", "decode_many", "encode"])
def test_bad_style_values_raise_value_error(climate, call):
    with pytest.raises(ValueError):
        call(climate)


def raw_ip_pcap(path, messages):
    """A pcap of raw IPv4/UDP datagrams: one notification of CABIN per (interface version, payload)."""
    out = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101)
    for session, (version, payload) in enumerate(messages, 1):
        someip = struct.pack(">HHIHHBBBB", 4660, 32769, 8 + len(payload), 0, session, 1, version, 2, 0) + payload
        udp = struct.pack(">HHHH", 30490, 30490, 8 + len(someip), 0) + someip
        ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), 0, 0, 64, 17, 0, b"\n\0\0\1", b"\n\0\0\2") + udp
        out += struct.pack("<IIII", 1700000000, session, len(ip), len(ip)) + ip
    path.write_bytes(out)
    return str(path)


def test_capture_records_name_their_format_and_carry_warnings(sp, climate, tmp_path):
    pcap = raw_ip_pcap(tmp_path / "climate.pcap", [(1, b"\x03\x41\x07"), (2, b"\x05")])
    first, second = sp.read_capture(pcap, climate, enum_style="value")
    assert (first["service_name"], first["method_name"], second["method_name"]) == ("Climate", "Cabin", "CabinV2")
    assert first["payload"] == {"mode": 3, "temp": 65}
    assert [(w["offset"], w["bytes"]) for w in first["warnings"]] == [(2, 1)]
    assert "warnings" not in second
    first, _ = sp.read_capture(pcap, climate, strict=True)
    assert (first["error"]["code"], first["method_name"]) == ("trailing_bytes", "Cabin")
    with pytest.raises(ValueError):
        sp.read_capture(pcap, climate, scaled="kelvin")


def test_loading_errors_name_the_file(sp, tmp_path):
    broken = tmp_path / "broken.json"
    broken.write_text('{"Services": [\n')
    with pytest.raises(sp.Error) as caught:
        sp.Formats(str(broken))
    assert caught.value.code == "bad_format_file"
    assert caught.value.path.endswith("broken.json")


def test_classic_calls(sp, formats):
    params = json.loads(formats.decode_classic(*ROUTE, SAMPLE))
    assert {p["ParamName"]: p["Value"] for p in params} == {"routeId": "7", "waypoints": "2", "lengthKm": "12.500000"}
    assert formats.encode_classic(*ROUTE, formats.decode_classic(*ROUTE, SAMPLE)) == SAMPLE
    assert [p["ParamName"] for p in json.loads(formats.method_format(*ROUTE))] == ["routeId", "waypoints", "lengthKm"]
    with pytest.raises(sp.Error) as caught:
        formats.method_format(0x1234, 99, 0x80)
    assert caught.value.code == "unknown_message"


def test_decode_many(sp, formats):
    items = [(*ROUTE, SAMPLE), (*ROUTE, SAMPLE[:5]), (*ROUTE, bytearray(SAMPLE))]
    first, failed, last = formats.decode_many(items, return_errors=True)
    assert first == last == DECODED
    assert (failed.code, failed.offset, failed.index) == ("truncated", 4, 1)
    with pytest.raises(sp.Error) as caught:
        formats.decode_many(items)
    assert caught.value.index == 1
    assert formats.decode_many([]) == []


def test_threads_share_one_format_set(formats):
    batch = [(*ROUTE, SAMPLE)] * 500
    with ThreadPoolExecutor(4) as pool:
        results = list(pool.map(formats.decode_many, [batch] * 8))
    assert all(result == [DECODED] * 500 for result in results)


def test_read_capture_gives_the_tools_lines(sp, bulk_formats, tmp_path):
    pcap = generate_capture(tmp_path, 200)
    lines = tool_lines(pcap, BULK_FORMATS)
    assert len(lines) == 200
    records = sp.read_capture(pcap, bulk_formats)
    assert list(records) == [json.loads(line) for line in lines]
    assert records.stats == {"frames": 200, "messages": 200, "lines": 200, "decoded": 200, "failed": 0}
    assert list(sp.read_capture(pcap, bulk_formats, lines=True)) == lines
    assert list(sp.read_capture(pcap, bulk_formats, ports=[30490])) != []
    assert list(sp.read_capture(pcap, bulk_formats, ports=[1])) == []


def test_read_capture_raises_after_the_records_before_damage(sp, bulk_formats, tmp_path):
    pcap = generate_capture(tmp_path, 20)
    cut = tmp_path / "cut.pcap"
    cut.write_bytes(open(pcap, "rb").read()[:-40])
    seen = []
    with pytest.raises(sp.Error) as caught:
        for record in sp.read_capture(str(cut), bulk_formats):
            seen.append(record)
    assert len(seen) == 19 and all("payload" in record for record in seen)
    assert (caught.value.code, caught.value.path) == ("capture_damaged", str(cut))
    with pytest.raises(sp.Error) as caught:
        sp.read_capture(str(tmp_path / "absent.pcap"), bulk_formats)
    assert caught.value.code == "file_error"


def test_formats_from_text_and_import_failures(sp, tmp_path):
    document = {"FormatVersion": 2, "Services": [{"ServiceID": "4660", "Attribute": {"ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN"},
                "Events": [{"EventID": "1", "Params": [{"MethodType": "event",
                                                        "ParamsDetails": [{"ParamName": "n", "ParamType": "uint16_t"}]}]}]}]}
    assert sp.Formats.from_text(json.dumps(document)).decode(0x1234, 1, 2, b"\x00\x07") == {"n": 7}
    with pytest.raises(sp.Error) as caught:
        sp.Formats.from_text("{", "mine.json")
    assert (caught.value.code, caught.value.path) == ("bad_format_file", "mine.json")

    empty = tmp_path / "empty.arxml"
    empty.write_text("<AUTOSAR/>")
    text, report = sp.import_descriptions([str(empty)])
    assert json.loads(text) == {"FormatVersion": 2, "Services": []}
    assert report["services"] == 0 and report["skipped"] == []
    broken = tmp_path / "broken.arxml"
    broken.write_text("<AUTOSAR>")
    with pytest.raises(sp.Error) as caught:
        sp.import_descriptions([str(broken)])
    assert caught.value.code == "import_failed" and "broken.arxml:1" in caught.value.message
    with pytest.raises(ValueError):
        sp.import_descriptions([str(empty)], dialect="xml")
