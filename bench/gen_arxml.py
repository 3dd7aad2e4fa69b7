#!/usr/bin/env python3
"""Writes a big AUTOSAR ARXML description for the import benchmark, deterministic from a seed.

    bench/gen_arxml.py [--services 2000] [--elements 20000] [--seed 1] [--split] [--indent] OUT

OUT is one file, or with --split a directory receiving types.arxml, interfaces.arxml and
deployments.arxml (references then cross files, as in real exports). Services carry methods and events
(--elements in all, spread at random), a field each, and draw their arguments from a pool of shared
types: structures, enumerations, scaled numbers, strings, vectors, fixed arrays and maps. Every element
is deployed, and one set of transformation properties is mapped to each service, so that a correct
import reports nothing.
"""
import argparse
import os
import random
import re

NS = "http://autosar.org/schema/r4.0"
PLATFORM = ["uint8_t", "uint16_t", "uint32_t", "uint64_t", "int8_t", "int16_t", "int32_t", "int64_t",
            "float", "double", "bool"]
INTEGERS = PLATFORM[:8]


def ref(tag, dest, path):
    return f'<{tag} DEST="{dest}">{path}</{tag}>'


def tref(path):
    return ref("TYPE-TREF", "STD-CPP-IMPLEMENTATION-DATA-TYPE", path)


def template(paths):
    args = "".join("<CPP-TEMPLATE-ARGUMENT>" + ref("TEMPLATE-TYPE-REF", "STD-CPP-IMPLEMENTATION-DATA-TYPE", p) +
                   "</CPP-TEMPLATE-ARGUMENT>" for p in paths)
    return f"<TEMPLATE-ARGUMENTS>{args}</TEMPLATE-ARGUMENTS>"


def std_type(name, category, inner=""):
    return (f"<STD-CPP-IMPLEMENTATION-DATA-TYPE><SHORT-NAME>{name}</SHORT-NAME><CATEGORY>{category}</CATEGORY>"
            f"{inner}</STD-CPP-IMPLEMENTATION-DATA-TYPE>\n")


def definition_props(inner):
    return ("<SW-DATA-DEF-PROPS><SW-DATA-DEF-PROPS-VARIANTS><SW-DATA-DEF-PROPS-CONDITIONAL>" + inner +
            "</SW-DATA-DEF-PROPS-CONDITIONAL></SW-DATA-DEF-PROPS-VARIANTS></SW-DATA-DEF-PROPS>")


class Types:
    """The shared type pool, written in dependency order (a type refers only to earlier ones)."""

    def __init__(self, rng, count):
        self.rng = rng
        self.paths = [f"/Types/Std/{p}" for p in PLATFORM]
        self.text = []
        for p in PLATFORM:
            self.text.append(std_type(p, "VALUE"))
        self.text.append(std_type("String", "STRING"))
        self.paths.append("/Types/Std/String")
        self.defined = []  # (package, text)
        for i in range(count):
            self.add(i)

    def pick(self):
        return self.rng.choice(self.paths)

    def add(self, i):
        rng = self.rng
        kind = rng.choice(["struct", "struct", "struct", "enum", "scaled", "vector", "array", "map"])
        name = f"{kind.capitalize()}{i}"
        if kind == "struct":
            members = "".join(
                f"<CPP-IMPLEMENTATION-DATA-TYPE-ELEMENT><SHORT-NAME>m{k}</SHORT-NAME><TYPE-REFERENCE>" +
                ref("TYPE-REFERENCE-REF", "STD-CPP-IMPLEMENTATION-DATA-TYPE", self.pick()) +
                "</TYPE-REFERENCE></CPP-IMPLEMENTATION-DATA-TYPE-ELEMENT>" for k in range(rng.randint(2, 6)))
            text = std_type(name, "STRUCTURE", f"<SUB-ELEMENTS>{members}</SUB-ELEMENTS>")
        elif kind == "enum":
            scales = "".join(f"<COMPU-SCALE><LOWER-LIMIT>{v}</LOWER-LIMIT><UPPER-LIMIT>{v}</UPPER-LIMIT>"
                             f"<COMPU-CONST><VT>V{v}</VT></COMPU-CONST></COMPU-SCALE>" for v in range(rng.randint(2, 8)))
            text = (f"<COMPU-METHOD><SHORT-NAME>{name}Values</SHORT-NAME><CATEGORY>TEXTTABLE</CATEGORY>"
                    f"<COMPU-INTERNAL-TO-PHYS><COMPU-SCALES>{scales}</COMPU-SCALES></COMPU-INTERNAL-TO-PHYS></COMPU-METHOD>\n" +
                    std_type(name, "TYPE_REFERENCE", definition_props(
                        ref("COMPU-METHOD-REF", "COMPU-METHOD", f"/Types/Pool/{name}Values") +
                        ref("IMPLEMENTATION-DATA-TYPE-REF", "STD-CPP-IMPLEMENTATION-DATA-TYPE", "/Types/Std/uint8_t"))))
        elif kind == "scaled":
            text = (f"<COMPU-METHOD><SHORT-NAME>{name}Scale</SHORT-NAME><CATEGORY>LINEAR</CATEGORY>"
                    "<COMPU-INTERNAL-TO-PHYS><COMPU-SCALES><COMPU-SCALE><COMPU-RATIONAL-COEFFS>"
                    f"<COMPU-NUMERATOR><V>{rng.randint(-100, 100)}</V><V>{rng.choice([1, 2, 5, 10])}</V></COMPU-NUMERATOR>"
                    "<COMPU-DENOMINATOR><V>4</V></COMPU-DENOMINATOR></COMPU-RATIONAL-COEFFS></COMPU-SCALE></COMPU-SCALES>"
                    "</COMPU-INTERNAL-TO-PHYS></COMPU-METHOD>\n" +
                    std_type(name, "TYPE_REFERENCE", definition_props(
                        ref("COMPU-METHOD-REF", "COMPU-METHOD", f"/Types/Pool/{name}Scale") +
                        ref("IMPLEMENTATION-DATA-TYPE-REF", "STD-CPP-IMPLEMENTATION-DATA-TYPE",
                            "/Types/Std/" + rng.choice(INTEGERS)))))
        elif kind == "vector":
            text = std_type(name, "VECTOR", template([self.pick()]))
        elif kind == "array":
            text = std_type(name, "ARRAY", f"<ARRAY-SIZE>{rng.randint(1, 8)}</ARRAY-SIZE>" + template([self.pick()]))
        else:
            key = "/Types/Std/" + rng.choice(INTEGERS)
            text = std_type(name, "ASSOCIATIVE_MAP", template([key, self.pick()]))
        self.defined.append(text)
        self.paths.append(f"/Types/Pool/{name}")

    def write(self, out):
        out.write("<AR-PACKAGE><SHORT-NAME>Types</SHORT-NAME><AR-PACKAGES>\n")
        out.write("<AR-PACKAGE><SHORT-NAME>Std</SHORT-NAME><ELEMENTS>\n" + "".join(self.text) + "</ELEMENTS></AR-PACKAGE>\n")
        out.write("<AR-PACKAGE><SHORT-NAME>Pool</SHORT-NAME><ELEMENTS>\n")
        for t in self.defined:
            out.write(t)
        out.write("</ELEMENTS></AR-PACKAGE>\n</AR-PACKAGES></AR-PACKAGE>\n")


def plan(rng, services, elements):
    """Methods and events per service: every service at least one of each, the rest at random."""
    counts = [[1, 1] for _ in range(services)]
    for _ in range(max(0, elements - 2 * services)):
        counts[rng.randrange(services)][rng.randrange(2)] += 1
    return counts


def write_interfaces(out, rng, types, counts):
    out.write("<AR-PACKAGE><SHORT-NAME>Services</SHORT-NAME><ELEMENTS>\n")
    for s, (methods, events) in enumerate(counts):
        out.write(f"<SERVICE-INTERFACE><SHORT-NAME>Service{s}</SHORT-NAME><EVENTS>")
        for e in range(events):
            out.write(f"<VARIABLE-DATA-PROTOTYPE><SHORT-NAME>Event{e}</SHORT-NAME>{tref(types.pick())}</VARIABLE-DATA-PROTOTYPE>")
        out.write(f"</EVENTS><FIELDS><FIELD><SHORT-NAME>Value</SHORT-NAME>{tref(types.pick())}"
                  "<HAS-GETTER>true</HAS-GETTER><HAS-NOTIFIER>true</HAS-NOTIFIER><HAS-SETTER>true</HAS-SETTER></FIELD></FIELDS>"
                  "<METHODS>")
        for m in range(methods):
            out.write(f"<CLIENT-SERVER-OPERATION><SHORT-NAME>Method{m}</SHORT-NAME><ARGUMENTS>")
            for a in range(rng.randint(0, 4)):
                direction = rng.choice(["IN", "IN", "OUT", "INOUT"])
                out.write(f"<ARGUMENT-DATA-PROTOTYPE><SHORT-NAME>arg{a}</SHORT-NAME>{tref(types.pick())}"
                          f"<DIRECTION>{direction}</DIRECTION></ARGUMENT-DATA-PROTOTYPE>")
            out.write("</ARGUMENTS></CLIENT-SERVER-OPERATION>")
        out.write("</METHODS></SERVICE-INTERFACE>\n")
    out.write("</ELEMENTS></AR-PACKAGE>\n")


def write_deployments(out, counts):
    out.write("<AR-PACKAGE><SHORT-NAME>Deployments</SHORT-NAME><ELEMENTS>\n")
    out.write("<TRANSFORMATION-PROPS-SET><SHORT-NAME>Props</SHORT-NAME><TRANSFORMATION-PROPSS>"
              "<AP-SOMEIP-TRANSFORMATION-PROPS><SHORT-NAME>Default</SHORT-NAME>"
              "<BYTE-ORDER>MOST-SIGNIFICANT-BYTE-FIRST</BYTE-ORDER><SIZE-OF-ARRAY-LENGTH-FIELD>4</SIZE-OF-ARRAY-LENGTH-FIELD>"
              "<SIZE-OF-STRING-LENGTH-FIELD>4</SIZE-OF-STRING-LENGTH-FIELD><SIZE-OF-STRUCT-LENGTH-FIELD>0</SIZE-OF-STRUCT-LENGTH-FIELD>"
              "</AP-SOMEIP-TRANSFORMATION-PROPS></TRANSFORMATION-PROPSS></TRANSFORMATION-PROPS-SET>\n")
    for s, (methods, events) in enumerate(counts):
        si = f"/Services/Service{s}"
        out.write(f"<SOMEIP-SERVICE-INTERFACE-DEPLOYMENT><SHORT-NAME>Service{s}OnSomeip</SHORT-NAME><EVENT-DEPLOYMENTS>")
        for e in range(events):
            out.write(f"<SOMEIP-EVENT-DEPLOYMENT><SHORT-NAME>Event{e}</SHORT-NAME>"
                      f"{ref('EVENT-REF', 'VARIABLE-DATA-PROTOTYPE', f'{si}/Event{e}')}<EVENT-ID>{e + 1}</EVENT-ID>"
                      "</SOMEIP-EVENT-DEPLOYMENT>")
        out.write("</EVENT-DEPLOYMENTS><FIELD-DEPLOYMENTS><SOMEIP-FIELD-DEPLOYMENT><SHORT-NAME>Value</SHORT-NAME>" +
                  ref("FIELD-REF", "FIELD", f"{si}/Value") +
                  f"<GET><SHORT-NAME>Get</SHORT-NAME><METHOD-ID>{methods + 1}</METHOD-ID></GET>"
                  f"<NOTIFIER><SHORT-NAME>Notify</SHORT-NAME><EVENT-ID>{events + 1}</EVENT-ID></NOTIFIER>"
                  f"<SET><SHORT-NAME>Set</SHORT-NAME><METHOD-ID>{methods + 2}</METHOD-ID></SET>"
                  "</SOMEIP-FIELD-DEPLOYMENT></FIELD-DEPLOYMENTS><METHOD-DEPLOYMENTS>")
        for m in range(methods):
            out.write(f"<SOMEIP-METHOD-DEPLOYMENT><SHORT-NAME>Method{m}</SHORT-NAME>"
                      f"{ref('METHOD-REF', 'CLIENT-SERVER-OPERATION', f'{si}/Method{m}')}<METHOD-ID>{m + 1}</METHOD-ID>"
                      "</SOMEIP-METHOD-DEPLOYMENT>")
        out.write("</METHOD-DEPLOYMENTS>" + ref("SERVICE-INTERFACE-REF", "SERVICE-INTERFACE", si) +
                  f"<SERVICE-INTERFACE-ID>{s + 1}</SERVICE-INTERFACE-ID><SERVICE-INTERFACE-VERSION>"
                  "<MAJOR-VERSION>1</MAJOR-VERSION><MINOR-VERSION>0</MINOR-VERSION></SERVICE-INTERFACE-VERSION>"
                  "</SOMEIP-SERVICE-INTERFACE-DEPLOYMENT>\n")
        out.write(f"<TRANSFORMATION-PROPS-TO-SERVICE-INTERFACE-ELEMENT-MAPPING><SHORT-NAME>Service{s}Props</SHORT-NAME>"
                  "<EVENT-REFS>" + "".join(ref("EVENT-REF", "VARIABLE-DATA-PROTOTYPE", f"{si}/Event{e}") for e in range(events)) +
                  "</EVENT-REFS><FIELD-REFS>" + ref("FIELD-REF", "FIELD", f"{si}/Value") + "</FIELD-REFS><METHOD-REFS>" +
                  "".join(ref("METHOD-REF", "CLIENT-SERVER-OPERATION", f"{si}/Method{m}") for m in range(methods)) +
                  "</METHOD-REFS>" + ref("TRANSFORMATION-PROPS-REF", "AP-SOMEIP-TRANSFORMATION-PROPS", "/Deployments/Props/Default") +
                  "</TRANSFORMATION-PROPS-TO-SERVICE-INTERFACE-ELEMENT-MAPPING>\n")
    out.write("</ELEMENTS></AR-PACKAGE>\n")


class Indented:
    """Writes what it is given as exports are laid out: an element a line, indented by its depth, a text
    on the line of its element. The same elements as without; the input is bigger and the markup a
    smaller part of it."""
    TAG = re.compile(r"(<[^>]+>)")

    def __init__(self, out):
        self.out, self.depth, self.last = out, 0, "close"

    def write(self, text):
        parts = []
        for token in self.TAG.split(text):
            if not token or token == "\n":
                continue
            if token.startswith("</"):
                self.depth -= 1
                if self.last == "close":
                    parts.append("\n" + "  " * self.depth)
                self.last = "close"
            elif token.startswith("<?"):
                self.last = "close"
            elif token.startswith("<"):
                parts.append("\n" + "  " * self.depth)
                if not token.endswith("/>"):
                    self.depth += 1
                self.last = "close" if token.endswith("/>") else "open"
            else:
                self.last = "text"
            parts.append(token)
        self.out.write("".join(parts))


def document(path, body, indent):
    with open(path, "w", encoding="utf-8") as file:
        out = Indented(file) if indent else file
        out.write(f'<?xml version="1.0" encoding="UTF-8"?>\n<AUTOSAR xmlns="{NS}"><AR-PACKAGES>\n')
        body(out)
        out.write("</AR-PACKAGES></AUTOSAR>\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--services", type=int, default=2000)
    parser.add_argument("--elements", type=int, default=20000, help="methods and events in all")
    parser.add_argument("--types", type=int, default=1000, help="shared types in the pool")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--split", action="store_true", help="OUT is a directory for three files")
    parser.add_argument("--indent", action="store_true", help="an element a line, indented (as exports are)")
    parser.add_argument("out")
    args = parser.parse_args()
    if not 1 <= args.services <= 65535:
        parser.error("--services must be 1..65535 (one service ID each)")
    rng = random.Random(args.seed)
    types = Types(rng, args.types)
    counts = plan(rng, args.services, args.elements)
    if max(max(c) for c in counts) > 32000:
        parser.error("too many elements for one service's IDs")
    interfaces = random.Random(rng.random())
    if args.split:
        os.makedirs(args.out, exist_ok=True)
        document(os.path.join(args.out, "types.arxml"), types.write, args.indent)
        document(os.path.join(args.out, "interfaces.arxml"), lambda out: write_interfaces(out, interfaces, types, counts), args.indent)
        document(os.path.join(args.out, "deployments.arxml"), lambda out: write_deployments(out, counts), args.indent)
    else:
        document(args.out, lambda out: (types.write(out), write_interfaces(out, interfaces, types, counts),
                                        write_deployments(out, counts)), args.indent)


if __name__ == "__main__":
    main()
