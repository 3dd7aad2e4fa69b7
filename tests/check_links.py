#!/usr/bin/env python3
"""Checks the relative links of the documentation: README.md and docs/*.md.

usage: tests/check_links.py [REPOSITORY_ROOT]     (default: the directory above this script)

Every Markdown link or image, [text](path), [text](path#anchor) or [text](#anchor), must name a file or
directory inside the repository, and an anchor must name a heading of the Markdown file it points into,
spelled as GitHub spells heading anchors. Links with a scheme (https:, mailto:, ...) are not followed.
Links inside code blocks and code spans are not links. Prints every broken link with its file and line;
exit status 1 when there is one.
"""
import os
import re
import sys
from urllib.parse import unquote

FENCE = re.compile(r"^ {0,3}(`{3,}|~{3,})")
CODE_SPAN = re.compile(r"(`+)(?:(?!\1).)+?\1", re.S)
# [text](target) or [text](<target> "title"); the text may hold one level of brackets.
LINK = re.compile(r"!?\[(?:[^\[\]]|\[[^\[\]]*\])*\]\(\s*(<[^>]*>|[^)\s]+)(?:\s+(?:\"[^\"]*\"|'[^']*'))?\s*\)")
HEADING = re.compile(r"^ {0,3}(#{1,6})[ \t]+(.*?)(?:[ \t]+#+)?[ \t]*$")
HTML_ANCHOR = re.compile(r"<a\s+[^>]*(?:name|id)\s*=\s*\"([^\"]+)\"", re.I)
SCHEME = re.compile(r"^[A-Za-z][A-Za-z0-9+.-]*:")


def without_code(text):
    """The text with fenced code blocks and code spans blanked out, lines and offsets kept."""
    lines, fence = [], None
    for line in text.split("\n"):
        opening = FENCE.match(line)
        if fence is not None:
            if opening and opening.group(1)[0] == fence[0] and len(opening.group(1)) >= len(fence) \
                    and not line.strip().strip(fence[0]):
                fence = None
            lines.append(" " * len(line))
        elif opening:
            fence = opening.group(1)
            lines.append(" " * len(line))
        else:
            lines.append(line)
    return CODE_SPAN.sub(lambda m: " " * len(m.group(0)), "\n".join(lines))


def slug(heading):
    """GitHub's anchor for a heading: the text as rendered, lower case, punctuation dropped, blanks to '-'."""
    text = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading)  # links: their text
    text = re.sub(r"<[^>]+>", "", text)                          # inline HTML
    text = text.lower()
    text = "".join(c for c in text if c.isalnum() or c in " -_")
    return text.replace(" ", "-")


_anchors = {}


def anchors(path):
    """The anchors a Markdown file defines: its headings (repeats numbered -1, -2, ...) and HTML anchors."""
    if path not in _anchors:
        with open(path, encoding="utf-8") as f:
            text = without_code(f.read())
        found, seen = set(), {}
        for line in text.split("\n"):
            heading = HEADING.match(line)
            if heading:
                base = slug(heading.group(2))
                n = seen.get(base, 0)
                seen[base] = n + 1
                found.add(base if n == 0 else "%s-%d" % (base, n))
            found.update(HTML_ANCHOR.findall(line))
        _anchors[path] = found
    return _anchors[path]


def check(root, path):
    """The broken links of one Markdown file, as 'file:line: message' texts."""
    with open(path, encoding="utf-8") as f:
        text = without_code(f.read())
    problems = []
    for link in LINK.finditer(text):
        target = link.group(1).strip("<>")
        if SCHEME.match(target) or target.startswith("//"):
            continue
        line = text.count("\n", 0, link.start()) + 1
        where = "%s:%d: %s" % (os.path.relpath(path, root), line, target)
        part, _, anchor = target.partition("#")
        part = unquote(part)
        if not part:
            destination = path
        elif part.startswith("/"):
            destination = os.path.normpath(os.path.join(root, part.lstrip("/")))
        else:
            destination = os.path.normpath(os.path.join(os.path.dirname(path), part))
        if os.path.commonpath([root, destination]) != root:
            problems.append(where + ": leads out of the repository")
        elif not os.path.exists(destination):
            problems.append(where + ": no such file")
        elif anchor:
            if not destination.endswith(".md") or os.path.isdir(destination):
                problems.append(where + ": an anchor into something that is not a Markdown file")
            elif unquote(anchor) not in anchors(destination):
                problems.append(where + ": no heading for #" + anchor)
    return problems


def main(argv):
    root = os.path.realpath(argv[1] if len(argv) > 1 else os.path.join(os.path.dirname(__file__), ".."))
    docs = os.path.join(root, "docs")
    files = [os.path.join(root, "README.md")]
    if os.path.isdir(docs):
        files += sorted(os.path.join(docs, name) for name in os.listdir(docs) if name.endswith(".md"))
    problems = [p for path in files for p in check(root, path)]
    for problem in problems:
        print(problem)
    print("check_links: %d files, %d broken links" % (len(files), len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
