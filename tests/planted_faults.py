#!/usr/bin/env python3
"""Planted faults: does the test suite notice real mistakes?

Each fault below is a small, plausible slip a developer could make in the library (a bound off by one,
the wrong byte order for one width, a dropped pad, a swapped condition, a wrong default, ...). The
script plants one fault at a time in the source tree, rebuilds, runs the whole test suite and records
whether some test failed ("caught") or all passed ("MISSED"). The file is always put back afterwards,
also on Ctrl-C.

Use it before and after reworking the tests: every fault must stay caught. It is slow (one incremental
build and one suite run per fault; the run stops at the first failing test), so it is not part of ctest
or CI. The untouched tree is built and tested first: a suite that already fails proves nothing.

    python3 tests/planted_faults.py                  # every fault; Markdown table on stdout
    python3 tests/planted_faults.py --only NAME      # one fault (repeatable)
    python3 tests/planted_faults.py --list           # the faults, without building anything
    python3 tests/planted_faults.py --check          # does every original text still occur once?
    python3 tests/planted_faults.py --build DIR      # another build directory (default: build-faults)

Exit status: 0 when every fault is caught; 1 when one is missed, does not apply (its original text is
not found exactly once: the code moved, relocate the fault) or breaks the build (a fault must compile);
2 when the unmodified tree does not build or pass.

Original texts are kept short (a line or two) so that a fault can be moved along when code moves.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import time
from collections import namedtuple

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

Fault = namedtuple("Fault", "name area file original faulty effect")

ENG = "someip_serializer_so/someip/"
INNER = "someip_serializer_so/Inner/"
COMP = "someip_serializer_so/compiled/"
CAP = "capture/src/"

FAULTS = [
    # ---- engines ----
    Fault("engine-utf16-terminator-half", "engines", ENG + "ZQSomeIPPayloadDeserializerGeneral.cpp",
          "if (!short_string && (p[length - 2] != 0 || p[length - 1] != 0)) {",
          "if (!short_string && (p[length - 2] != 0 && p[length - 1] != 0)) {",
          "a UTF-16 string whose last unit is not 0x0000 is accepted as terminated"),
    Fault("engine-utf16-keeps-terminator", "engines", ENG + "ZQSomeIPPayloadDeserializerGeneral.cpp",
          "value = utf16_to_utf8(p + sizeof(BOM_UTF16LE), length - 4, little);",
          "value = utf16_to_utf8(p + sizeof(BOM_UTF16LE), length - 2, little);",
          "decoded UTF-16 text ends with a stray U+0000 (the terminator)"),
    Fault("engine-bool-any-bit", "engines", ENG + "ZQSomeIPPayloadDeserializerGeneral.cpp",
          "out = (v & 0x01u) != 0;",
          "out = v != 0;",
          "a bool byte 0x02 decodes as true instead of false"),
    Fault("engine-pad-byte-zero", "engines", ENG + "ZQSomeIPPayloadSerializerGeneral.cpp",
          "write_padding(Rules::align_padding(position - begin_index, alignment_bytes), 0xFF);",
          "write_padding(Rules::align_padding(position - begin_index, alignment_bytes), 0x00);",
          "alignment padding after a dynamic element is written as 0x00 instead of 0xFF"),
    Fault("engine-string-length-counts-field", "engines", ENG + "ZQSomeIPPayloadSerializerGeneral.cpp",
          "const int32_t length = static_cast<int32_t>(position - start - length_size);",
          "const int32_t length = static_cast<int32_t>(position - start);",
          "a string's length field also counts the length field itself"),
    Fault("engine-full-pad-when-aligned", "engines", ENG + "ZQSomeIPPayloadFrameRules.h",
          "return remainder == 0 ? 0 : alignment - remainder;",
          "return alignment - remainder;",
          "an element already on its alignment gets a whole alignment of padding"),
    Fault("engine-swap64-as-32", "engines", ENG + "ZQSomeIPPayloadUtilsByteOrder.cpp",
          "uint64_t swap64(uint64_t v) { return __builtin_bswap64(v); }",
          "uint64_t swap64(uint64_t v) { return __builtin_bswap32(static_cast<uint32_t>(v)); }",
          "64-bit values in the other byte order lose their high half"),

    # ---- reference converters ----
    Fault("inner-array-one-extra", "converters", INNER + "Inner_someipDeserializer.cpp",
          "[&count, &walked, budget]() { return --count == 0 || ++walked >= budget; });",
          "[&count, &walked, budget]() { return count-- == 0 || ++walked >= budget; });",
          "a fixed array decodes one element more than declared"),
    Fault("inner-string-size-no-terminator", "converters", INNER + "Inner_someipDeserializer.cpp",
          "used = extend_attr.string_length_field_size + 4 + static_cast<uint32_t>(strlen(text.c_str()));",
          "used = extend_attr.string_length_field_size + 3 + static_cast<uint32_t>(strlen(text.c_str()));",
          "a vector of strings is walked past its end (the terminator is not counted)"),
    Fault("inner-int8-read-as-char", "converters", INNER + "Inner_someipSerializer.cpp",
          "rc = writer->write(static_cast<signed char>(StringToNum<short>(number)), nullptr);",
          "rc = writer->write(StringToNum<signed char>(number), nullptr);",
          "int8_t \"-5\" is written as the character '-' (0x2D)"),
    Fault("inner-uint64-as-32", "converters", INNER + "Inner_someipSerializer.cpp",
          "rc = writer->write(StringToNum<unsigned long>(number), nullptr);",
          "rc = writer->write(StringToNum<unsigned int>(number), nullptr);",
          "uint64_t values are written as 4 bytes"),
    Fault("inner-array-pad-one-short", "converters", INNER + "Inner_someipSerializer.cpp",
          "while (subParams.size() < expectedCount) {",
          "while (subParams.size() + 1 < expectedCount) {",
          "a short fixed array is padded to one element less than declared"),

    # ---- fast exact paths ----
    Fault("fast-decoder-backslash-unescaped", "fast paths", COMP + "ZQSomeIPFastDecoder.cpp",
          "if (u < 0x20 || u >= 0x7F || c == '\"' || c == '\\\\') {",
          "if (u < 0x20 || u >= 0x7F || c == '\"') {",
          "a backslash in a decoded string is written unescaped (broken JSON)"),
    Fault("fast-decoder-float-general", "fast paths", COMP + "ZQSomeIPFastDecoder.cpp",
          "std::chars_format::fixed, 6);",
          "std::chars_format::general, 6);",
          "float values print as \"1.5\" instead of \"1.500000\""),
    Fault("fast-decoder-element-from-one", "fast paths", COMP + "ZQSomeIPFastDecoder.cpp",
          "if (!param(r, n.children[0], remaining, depth + 1, &n, static_cast<int>(i))) {",
          "if (!param(r, n.children[0], remaining, depth + 1, &n, static_cast<int>(i + 1))) {",
          "array elements are named _1.._N instead of _0.._N-1"),
    Fault("fast-encoder-short-array-unpadded", "fast paths", COMP + "ZQSomeIPFastEncoder.cpp",
          "if (StringToNum<unsigned int>(value) != sub->count || !list(*sub)) {",
          "if (StringToNum<unsigned int>(value) < sub->count || !list(*sub)) {",
          "a fixed array given fewer elements than declared is not padded"),
    Fault("fast-encoder-int64-as-32", "fast paths", COMP + "ZQSomeIPFastEncoder.cpp",
          "rc = w_.write(quickStringToNum<long>(n), nullptr);",
          "rc = w_.write(quickStringToNum<int>(n), nullptr);",
          "int64_t values are written as 4 bytes"),
    Fault("fast-encoder-empty-list", "fast paths", COMP + "ZQSomeIPFastEncoder.cpp",
          "if (!doc.parse(json) || doc.root().count == 0) {",
          "if (!doc.parse(json)) {",
          "an empty parameter list encodes to an empty payload instead of failing"),
    Fault("compiled-zero-count-array", "fast paths", COMP + "ZQSomeIPCompiledFormat.cpp",
          "require(node.count != 0);",
          "",
          "an array declared with 0 elements decodes as empty instead of failing"),
    Fault("compiled-vector-without-value", "fast paths", COMP + "ZQSomeIPCompiledFormat.cpp",
          "const bool valued = basic || node.kind == ZQSomeIPParamKind::Vector;",
          "const bool valued = basic;",
          "a vector described without \"Value\" decodes without its element count"),

    # ---- plain codec ----
    Fault("plain-tlv-wire-type-mask", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "const uint32_t wireType = (tag >> 12) & 7u;",
          "const uint32_t wireType = (tag >> 12) & 3u;",
          "TLV members with a length field (wire types 4..7) are misread"),
    Fault("plain-utf16-units-f0", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "units += (u >= 0xF0) ? 2 : 1;",
          "units += (u > 0xF0) ? 2 : 1;",
          "UTF-16 strings with characters U+10000..U+3FFFF (most emoji) are mis-sized"),
    Fault("plain-vector-max-count", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "if (i < p.minCount || i > p.maxCount) {",
          "if (i < p.minCount || i >= p.maxCount) {",
          "a decoded vector of exactly MaxCount elements is refused"),
    Fault("plain-struct-skip-strictness-swapped", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "if (used < length && p.kind == Param::Structure && !options_.strict) {",
          "if (used < length && p.kind == Param::Structure && options_.strict) {",
          "lenient decoding refuses a struct with appended members, strict decoding skips them"),
    Fault("plain-union-align-pad-dropped", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "fill += alignPadding(w_->to_buffer().size() + fill - start, ea.alignment);",
          "fill += alignPadding(w_->to_buffer().size() + fill - start, u.alignment);",
          "an encoded union is not padded to its alignment (the frame's cleared alignment is used)"),
    Fault("plain-integer-exponent-code", "plain codec", COMP + "ZQSomeIPPlainCodec.cpp",
          "v.text.find_first_of(\".eE\") != std::string_view::npos",
          "v.text.find_first_of(\".\") != std::string_view::npos",
          "an integer given as 1e3 reports out_of_range instead of wrong_type"),
    Fault("plainformat-utf16-order-default", "plain codec", COMP + "ZQSomeIPPlainFormat.cpp",
          "p.stringUtf16ByteOrder = c.utf16Set ? c.utf16Order : c.attr.byte_order;",
          "p.stringUtf16ByteOrder = c.utf16Set ? c.utf16Order : static_cast<uint32_t>(ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN);",
          "UTF-16 strings of a little-endian service default to big-endian units"),
    Fault("plainformat-signed-enum-limit", "plain codec", COMP + "ZQSomeIPPlainFormat.cpp",
          "if (negative ? m > limit : m >= limit) {",
          "if (m > limit) {",
          "an int8_t enumerator of value 128 is accepted (its name then encodes as -128)"),
    Fault("plainformat-dynamic-lfs-default", "plain codec", COMP + "ZQSomeIPPlainFormat.cpp",
          "bool dynamicLfs = true;",
          "bool dynamicLfs = false;",
          "TLV complex members are tagged wire type 4 instead of 5..7 by default"),

    # ---- format store and format set ----
    Fault("store-absent-length-size-zero", "format store", "someip_serializer_so/format/ZQSomeIPFormatRules.cpp",
          "        return 2;\n    }\n    return 4;",
          "        return 2;\n    }\n    return 0;",
          "an absent length field size means no length field instead of 32 bits"),
    Fault("store-default-byte-order-big", "format store", "someip_serializer_so/format/ZQSomeIPFormatRules.cpp",
          "return text == \"BYTE_ORDER_BIG_ENDIAN\" ? ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN\n"
          "                                           : ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN;",
          "return text == \"BYTE_ORDER_LITTLE_ENDIAN\" ? ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_LITTLE_ENDIAN\n"
          "                                              : ZQ_SOMEIP_PAYLOAD_BYTE_ORDER_BIG_ENDIAN;",
          "a format without ByteOrderEnum reads big endian instead of little endian"),
    Fault("store-global-attribute-wins", "format store", "someip_serializer_so/ZQSomeIPFormatAnalyzer.cpp",
          "if (parseAttribute(serviceAttribute, attr) == -1) {\n            parseGlobalAttribute(document, attr);",
          "if (parseAttribute(serviceAttribute, attr) == -1 || document.isMember(\"Attribute\")) {\n            parseGlobalAttribute(document, attr);",
          "the file's global Attribute overrides a service's own Attribute"),
    Fault("formatset-error-names-swapped", "format store", COMP + "ZQSomeIPFormatSet.cpp",
          "\"truncated\", \"length_beyond_data\", \"length_mismatch\",",
          "\"truncated\", \"length_mismatch\", \"length_beyond_data\",",
          "errors report length_mismatch where the length runs beyond the data, and back"),
    Fault("formatset-column-off-by-one", "format store", COMP + "ZQSomeIPFormatSet.cpp",
          "for (size_t i = 0; i < offset && i < text.size(); ++i) {",
          "for (size_t i = 0; i <= offset && i < text.size(); ++i) {",
          "a broken format file is reported one column (or line) too far"),

    # ---- capture reader ----
    Fault("capture-adjacent-pieces-overlap", "capture", CAP + "reassembly.cpp",
          "if (offset < r.second && stop > r.first) {",
          "if (offset <= r.second && stop >= r.first) {",
          "fragments or TP segments that merely touch are refused as overlapping"),
    Fault("capture-ipv4-offset-unit", "capture", CAP + "ip_layer.cpp",
          "const uint32_t offset = (flags & kIpv4OffsetMask) * kFragmentUnit;",
          "const uint32_t offset = flags & kIpv4OffsetMask;",
          "IPv4 fragment offsets are taken in bytes instead of 8-byte units"),
    Fault("capture-single-vlan-tag", "capture", CAP + "link_layer.cpp",
          "while (type == kEtherVlan || type == kEtherQinQ || type == kEtherQinQOld) {",
          "if (type == kEtherVlan || type == kEtherQinQ || type == kEtherQinQOld) {",
          "double-tagged (QinQ) Ethernet frames are skipped"),
    Fault("capture-tp-offset-unit", "capture", CAP + "someip_layer.cpp",
          "const uint32_t offset = word & kTpOffsetMask;",
          "const uint32_t offset = word >> 4;",
          "SOME/IP-TP offsets are taken in 16-byte units, not bytes: segments do not join"),
    Fault("capture-tp-flag-kept", "capture", CAP + "someip_layer.cpp",
          "m.header.message_type &= static_cast<uint8_t>(~kTpFlag);",
          "",
          "a reassembled TP message keeps the TP flag in its message type"),
    Fault("capture-sd-ipv4-port-offset", "capture", CAP + "service_discovery.cpp",
          "detail::setEndpoint(o.endpoint, 4, v, be16(v + 6), true);",
          "detail::setEndpoint(o.endpoint, 4, v, be16(v + 5), true);",
          "SD IPv4 endpoint options show a wrong port"),
    Fault("capture-return-code-bound", "capture", CAP + "someip_layer.cpp",
          "if (h[kReturnCodeAt] > kMaxReturnCode) return HeaderCheck::ReturnCode;",
          "if (h[kReturnCodeAt] >= kMaxReturnCode) return HeaderCheck::ReturnCode;",
          "a message with return code 0x5E is rejected as a bad header"),
    Fault("capture-error-names-swapped", "capture", CAP + "context.cpp",
          "\"tp-invalid\", \"tp-overlap\", \"tp-missing-segments\",",
          "\"tp-invalid\", \"tp-missing-segments\", \"tp-overlap\",",
          "TP overlaps are reported as missing segments and back"),
]

# A fault planted when the script was killed outright: put back on the next start.
PENDING = "planted_fault.pending"


def run(cmd):
    proc = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return proc.returncode, proc.stdout


def build(build_dir):
    return run(["cmake", "--build", build_dir, "-j2"])


def suite(build_dir):
    """(all passed, first failing test or "")."""
    code, out = run(["ctest", "--test-dir", build_dir, "-j2", "--timeout", "300", "--stop-on-failure"])
    if code == 0:
        return True, ""
    # The summary lists them as "  32 - Suite.Name (Failed)".
    failed = re.findall(r"^\s*\d+ - (\S+) \(", out, re.MULTILINE)
    return False, failed[0] if failed else "(ctest exit %d)" % code


def read_bytes(path):
    with open(path, "rb") as f:
        return f.read()


def write_bytes(path, data):
    with open(path, "wb") as f:
        f.write(data)


def restore_pending(build_dir):
    pending = os.path.join(build_dir, PENDING)
    if not os.path.exists(pending):
        return
    data = read_bytes(pending)
    path, _, original = data.partition(b"\0")
    write_bytes(path.decode(), original)
    os.remove(pending)
    print("restored %s, left planted by an interrupted run" % path.decode(), file=sys.stderr)


def plant_and_test(fault, build_dir):
    """One of: "caught", "MISSED", "does not apply", "build broke"; and the first failing test."""
    path = os.path.join(ROOT, fault.file)
    if not os.path.exists(path):
        return "does not apply", "(file not found)"
    original = read_bytes(path)
    text = original.decode("utf-8")
    count = text.count(fault.original)
    if count != 1:
        return "does not apply", "(original text found %d times)" % count
    pending = os.path.join(build_dir, PENDING)
    write_bytes(pending, path.encode() + b"\0" + original)
    try:
        write_bytes(path, text.replace(fault.original, fault.faulty).encode("utf-8"))
        code, out = build(build_dir)
        if code != 0:
            errors = [l for l in out.splitlines() if "error" in l]
            return "build broke", errors[0].strip()[:120] if errors else "(build failed)"
        passed, first = suite(build_dir)
        return ("MISSED", "") if passed else ("caught", first)
    finally:
        write_bytes(path, original)
        os.remove(pending)


def main():
    parser = argparse.ArgumentParser(description="Plants faults one at a time and checks the test suite catches them.")
    parser.add_argument("--build", default=os.path.join(ROOT, "build-faults"), help="build directory (default: build-faults)")
    parser.add_argument("--only", action="append", metavar="NAME", help="run this fault only (repeatable)")
    parser.add_argument("--list", action="store_true", help="list the faults and exit")
    parser.add_argument("--check", action="store_true",
                        help="only check that every original text occurs exactly once (no build)")
    args = parser.parse_args()

    faults = FAULTS
    if args.only:
        unknown = set(args.only) - {f.name for f in FAULTS}
        if unknown:
            parser.error("unknown fault: " + ", ".join(sorted(unknown)))
        faults = [f for f in FAULTS if f.name in args.only]
    if args.list:
        for f in faults:
            print("%-38s %-13s %s\n%38s %s" % (f.name, f.area, f.file, "", f.effect))
        return 0
    if args.check:
        stale = 0
        for f in faults:
            path = os.path.join(ROOT, f.file)
            count = read_bytes(path).decode("utf-8").count(f.original) if os.path.exists(path) else 0
            if count != 1:
                stale += 1
                print("%s: original text found %d times in %s" % (f.name, count, f.file))
        print("%d of %d faults apply" % (len(faults) - stale, len(faults)))
        return 1 if stale else 0

    # Ctrl-C raises KeyboardInterrupt; a plain kill is turned into the same, so the file is put back.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    build_dir = os.path.abspath(args.build)
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        code, out = run(["cmake", "-S", ROOT, "-B", build_dir, "-DSOMEIP_WERROR=ON"])
        if code != 0:
            print(out, file=sys.stderr)
            return 2
    restore_pending(build_dir)

    start = time.time()
    code, out = build(build_dir)
    if code != 0:
        print(out[-4000:], file=sys.stderr)
        print("the unmodified tree does not build", file=sys.stderr)
        return 2
    passed, first = suite(build_dir)
    if not passed:
        print("the unmodified tree fails its tests (first: %s)" % first, file=sys.stderr)
        return 2

    rows = []
    try:
        for i, fault in enumerate(faults, 1):
            t = time.time()
            result, first = plant_and_test(fault, build_dir)
            rows.append((fault, result, first))
            print("[%d/%d] %s: %s %s (%.0f s)" % (i, len(faults), fault.name, result, first, time.time() - t),
                  file=sys.stderr, flush=True)
    except KeyboardInterrupt:
        print("interrupted; the planted file was restored", file=sys.stderr)
    finally:
        build(build_dir)  # leave the build directory matching the sources

    print("| fault | area | result | first failing test |")
    print("|---|---|---|---|")
    for fault, result, first in rows:
        print("| %s | %s | %s | %s |" % (fault.name, fault.area, result, first.replace("|", "\\|")))
    bad = [r for r in rows if r[1] != "caught"]
    print("\n%d faults, %d caught, %d not caught; %.0f s" % (len(rows), len(rows) - len(bad), len(bad),
                                                           time.time() - start))
    for fault, result, _ in bad:
        print("- %s (%s): %s" % (fault.name, result, fault.effect))
    return 1 if bad or len(rows) < len(faults) else 0


if __name__ == "__main__":
    sys.exit(main())
