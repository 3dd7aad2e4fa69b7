#!/usr/bin/env python3
"""Runs the examples of the documentation: README.md, then docs/*.md, in one scratch directory.

usage: tests/check_docs.py REPOSITORY_ROOT BUILD_DIR [MARKDOWN_FILE...]

The scratch directory holds links to the repository's top-level entries and `build` -> BUILD_DIR, so
commands run as written from the repository's root; `build/tools` is on PATH and nothing is written
into the repository. Fenced blocks, in document order:

- sh: with lines opening `$ `, each such line (and the lines a trailing backslash continues) is one
  command, and the lines up to the next `$ ` are its output, standard output and error together,
  compared exactly (`...` in an expected line stands for any text; a command whose output is shown may
  fail, one without may not). Without `$ ` the block is one script that must succeed. `export NAME=...`
  and `cd DIR` lines carry over to later commands of the run.
- python with `>>> `: run as a doctest, one namespace per document.
- a block preceded by a line `` `NAME`: `` or `<!-- doc-test: file NAME -->` is written to NAME and not run.
- a block preceded by `<!-- doc-test: skip REASON -->` is not run (installing system-wide, the commands
  that run this very test, clusters, campaigns of minutes); the reason is printed.
- cpp and python blocks that are neither files nor doctests are an error: an example must be complete.
Other blocks (JSON, text, diagrams) are read, not run. Exit status 1 when any example fails.
"""
import doctest
import os
import re
import subprocess
import sys
import tempfile

FENCE = re.compile(r"^```(\w*)[ \t]*\n(.*?)^```[ \t]*$", re.S | re.M)
DIRECTIVE = re.compile(r"<!--\s*doc-test:\s*(file|skip)\s+(.*?)\s*-->")
FILE_LINE = re.compile(r"^`([\w./-]+)`:\s*$")


def directive(text, start):
    """The directive on the non-blank line before a block: ('file', NAME), ('skip', REASON) or None."""
    before = [line for line in text[:start].split("\n") if line.strip()]
    last = before[-1].strip() if before else ""
    match = DIRECTIVE.fullmatch(last)
    if match:
        return match.group(1), match.group(2)
    match = FILE_LINE.match(last)
    return ("file", match.group(1)) if match else None


def commands(block):
    """[(command, expected output lines)] of a block with prompts."""
    out, lines, i = [], block.split("\n"), 0
    while i < len(lines):
        if not lines[i].startswith("$ "):
            i += 1
            continue
        command = lines[i][2:]
        while command.endswith("\\") and i + 1 < len(lines):
            i += 1
            command += "\n" + lines[i]
        i += 1
        expected = []
        while i < len(lines) and not lines[i].startswith("$ "):
            expected.append(lines[i])
            i += 1
        while expected and not expected[-1].strip():
            expected.pop()
        out.append((command, expected))
    return out


def matches(expected, actual):
    pattern = "\n".join(".*?".join(re.escape(part) for part in line.split("...")) for line in expected)
    return re.fullmatch(pattern, "\n".join(actual), re.S) is not None


class Run:
    def __init__(self, root, build, scratch):
        self.scratch, self.carried, self.failures = scratch, [], 0
        for name in os.listdir(root):
            if not name.startswith("build") and not name.startswith("."):
                os.symlink(os.path.join(root, name), os.path.join(scratch, name))
        os.symlink(os.path.abspath(build), os.path.join(scratch, "build"))
        self.env = dict(os.environ, PATH=os.path.join(scratch, "build", "tools") + os.pathsep + os.environ["PATH"])

    def shell(self, script):
        prelude = "".join(line + "\n" for line in self.carried)
        run = subprocess.run(["bash", "-c", prelude + script], cwd=self.scratch, env=self.env, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
        self.carried += [line.strip() for line in script.split("\n") if re.match(r"\s*(export \w+=|cd )", line)]
        return run.returncode, run.stdout.decode("utf-8", "replace")

    def fail(self, where, why, output=""):
        self.failures += 1
        print("FAIL %s: %s%s" % (where, why, ("\n" + output.rstrip()) if output else ""))

    def sh(self, where, block):
        prompts = commands(block)
        if not prompts:
            status, output = self.shell("set -e\n" + block)
            if status != 0:
                self.fail(where, "the block ended with status %d" % status, output)
            return
        for command, expected in prompts:
            status, output = self.shell(command)
            actual = [line.rstrip() for line in output.rstrip("\n").split("\n")] if output.strip() else []
            if not matches([line.rstrip() for line in expected], actual):
                self.fail(where, "$ %s\nexpected:\n%s\ngot (status %d):" % (command, "\n".join(expected), status),
                          output)
            elif status != 0 and not expected:
                self.fail(where, "$ %s ended with status %d" % (command, status), output)

    def doctest(self, where, block, globs):
        test = doctest.DocTestParser().get_doctest(block, globs, where, where, 0)
        runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE)
        cwd = os.getcwd()
        os.chdir(self.scratch)
        try:
            result = runner.run(test, out=sys.stdout.write, clear_globs=False)  # bound now: run() swaps stdout
        finally:
            os.chdir(cwd)
        globs.update(test.globs)  # a DocTest works on a copy; later blocks of the document go on from here
        if result.failed:
            self.fail(where, "%d of %d examples failed" % (result.failed, result.attempted))

    def document(self, path, shown):
        text = open(path, encoding="utf-8").read()
        globs = {}
        for block in FENCE.finditer(text):
            language, body = block.group(1), block.group(2)
            where = "%s:%d" % (shown, text.count("\n", 0, block.start()) + 1)
            how = directive(text, block.start())
            if how and how[0] == "skip":
                print("skip %s: %s" % (where, how[1]))
            elif how and how[0] == "file":
                with open(os.path.join(self.scratch, how[1]), "w", encoding="utf-8") as f:
                    f.write(body)
            elif language in ("sh", "bash", "console"):
                self.sh(where, body)
            elif language == "python" and ">>> " in body:
                for line in self.carried:  # what the shell blocks exported reaches the module search path too
                    match = re.match(r"export (\w+)=(.*)", line)
                    if match:
                        value = match.group(2).replace("$PWD", self.scratch)
                        os.environ[match.group(1)] = value
                        if match.group(1) == "PYTHONPATH":
                            sys.path[:0] = [p for p in value.split(os.pathsep) if p not in sys.path]
                self.doctest(where, body, globs)
            elif language in ("cpp", "python"):
                self.fail(where, "a %s example that is neither a file (`NAME`:) nor a doctest" % language)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    root, build = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    files = sys.argv[3:] or ["README.md"] + sorted(
        os.path.join("docs", name) for name in os.listdir(os.path.join(root, "docs")) if name.endswith(".md"))
    with tempfile.TemporaryDirectory(prefix="someip_docs_") as scratch:
        run = Run(root, build, scratch)
        for name in files:
            run.document(os.path.join(root, name), name)
    print("%d documents, %d failures" % (len(files), run.failures))
    return 1 if run.failures else 0


if __name__ == "__main__":
    sys.exit(main())
