#!/usr/bin/env python3
"""Lists the longest functions of the library code, longest first.

    scripts/function_sizes.py [--limit 60] [DIR...]
"""
import argparse
import os
import re

DEFAULT_DIRS = ["someip_serializer_so", "capture", "importer", "tools", "python"]


def functions(path):
    """(signature, line, length) of every function body: this code opens a function's body with a brace
    on a line of its own (control statements, classes and lambdas open theirs on the line they start),
    and closes it at the same indentation."""
    lines = open(path, encoding="utf-8", errors="replace").read().split("\n")
    for i, line in enumerate(lines):
        opening = re.fullmatch(r"(\s*)\{", line)
        if not opening or i == 0:
            continue
        indent = opening.group(1)
        start = i - 1
        while start > 0 and lines[start].startswith(indent + " ") and not lines[start - 1].rstrip().endswith((";", "}", "{")):
            start -= 1
        signature = lines[start].strip()
        if signature.startswith(("namespace", "struct", "class", "enum", "union", "extern")) or signature.endswith("="):
            continue
        for end in range(i + 1, len(lines)):
            if lines[end] == indent + "}" or lines[end].startswith(indent + "};"):
                yield signature, start + 1, end - i + 1
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
