#!/usr/bin/env python3
"""Lists the longest functions of the library code (definitions whose braces stand at the start of a
line, as the code is laid out), longest first.

    scripts/function_sizes.py [--limit 60] [DIR...]
"""
import argparse
import os
import re

DEFAULT_DIRS = ["someip_serializer_so", "capture", "importer", "tools", "python"]
SIGNATURE = re.compile(r"^[A-Za-z_~].*\)\s*(const)?\s*(noexcept)?\s*(override)?\s*$")


def functions(path):
    lines = open(path, encoding="utf-8", errors="replace").read().split("\n")
    for i, line in enumerate(lines):
        if line != "{" or i == 0:
            continue
        # The signature may span lines: look back to the line that starts it.
        start = i - 1
        while start > 0 and lines[start].startswith((" ", "\t")) and not lines[start - 1].endswith((";", "}")):
            start -= 1
        if not SIGNATURE.match(lines[i - 1].strip()) and not lines[i - 1].rstrip().endswith((")", "const", "override")):
            continue
        if lines[start].startswith(("namespace", "struct", "class", "enum", "union", "extern")):
            continue
        for end in range(i + 1, len(lines)):
            if lines[end] == "}":
                yield lines[start].strip(), start + 1, end - i + 1
                break


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--limit", type=int, default=60)
    parser.add_argument("dirs", nargs="*", default=DEFAULT_DIRS)
    args = parser.parse_args()
    root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    found = []
    for d in args.dirs:
        for base, _, files in os.walk(os.path.join(root, d)):
            if "/tests" in base:
                continue
            for f in files:
                if f.endswith((".cpp", ".h")):
                    path = os.path.join(base, f)
                    for name, line, length in functions(path):
                        found.append((length, os.path.relpath(path, root), line, name))
    found.sort(reverse=True)
    for length, path, line, name in found:
        if length > args.limit:
            print("%4d  %s:%d  %s" % (length, path, line, name[:90]))


if __name__ == "__main__":
    main()
