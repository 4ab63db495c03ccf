#!/usr/bin/env python3
"""Runs the commands that README.md and docs/*.md mark runnable, and checks
that each prints exactly what the page shows.

A runnable example is a fenced block of the kind `console` right after the
line `<!-- runnable -->`:

    <!-- runnable -->
    ```console
    $ mox lookup --toc 000096001234
    mox lookup: the phone does not know this disc (phone status 404)
    [1]
    ```

`$ ` starts a command and `> ` continues it; the lines after it are its
output (stdout and stderr together); `[N]` is a non-zero exit status; `…`
stands for any text within a line. The blocks of one page run in order in
one shell, in a scratch directory where `build`, `tools`, `examples` and
`docs` lead to the tree being checked and the built tools are on PATH, so a
page can use `mox`, `mox-phone`, `mox-sampledb` as an installed system has
them. Debian's cram (python3-cram) runs them and shows any difference.

    python3 scripts/check-docs.py [--build-dir build/default] [FILE.md...]
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

MARK = "<!-- runnable -->"
FENCE = re.compile(r"^```console\s*$")
ELLIPSIS = "\u2026"


def runnable_blocks(text):
    """The lines of each runnable block of a page, with the line number of its fence."""
    lines = text.splitlines()
    index = 0
    while index < len(lines):
        if lines[index].strip() != MARK:
            index += 1
            continue
        fence = index + 1
        if fence >= len(lines) or not FENCE.match(lines[fence]):
            raise ValueError(f"line {index + 1}: {MARK} is not followed by a ```console block")
        end = fence + 1
        while end < len(lines) and lines[end].strip() != "```":
            end += 1
        if end >= len(lines):
            raise ValueError(f"line {fence + 1}: the block never ends")
        yield fence + 1, lines[fence + 1:end]
        index = end + 1


def output_line(line):
    """An expected output line in cram's form: `…` becomes a glob."""
    if ELLIPSIS not in line:
        return "  " + line
    escaped = line.replace("\\", "\\\\").replace("*", "\\*").replace("?", "\\?")
    return "  " + escaped.replace(ELLIPSIS, "*") + " (glob)"


def cram_text(page, blocks, source, build):
    """One cram test for the blocks of `page`: a set-up, then every block."""
    out = [
        f"Runnable examples of {page}.",
        "",
        f"  $ ln -s '{source}/tools' tools && ln -s '{source}/examples' examples"
        f" && ln -s '{source}/docs' docs && ln -s '{build.parent}' build",
        "",
    ]
    for line_number, lines in blocks:
        out.append(f"{page}, line {line_number}:")
        out.append("")
        for line in lines:
            if line.startswith("$ "):
                out.append("  $ " + line[2:])
            elif line.startswith("> "):
                out.append("  > " + line[2:])
            else:
                out.append(output_line(line))
        out.append("")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Run the runnable examples of the docs.")
    parser.add_argument("--build-dir", default="build/default",
                        help="the built tree whose tools the examples run")
    parser.add_argument("pages", nargs="*", help="pages to check (default: README.md, docs/*.md)")
    args = parser.parse_args()

    source = pathlib.Path(__file__).resolve().parent.parent
    build = (source / args.build_dir).resolve()
    pages = [pathlib.Path(p) for p in args.pages] or \
        [source / "README.md"] + sorted((source / "docs").glob("*.md"))
    cram = shutil.which("cram3") or shutil.which("cram")
    if cram is None:
        sys.exit("check-docs: cram is not installed (Debian's python3-cram)")
    for tool in ("tools/mox/mox", "tools/phone/mox-phone", "tools/dbwriter/mox-sampledb"):
        if not (build / tool).exists():
            sys.exit(f"check-docs: {build / tool} is not built (bash scripts/run.sh builds it)")

    scratch = pathlib.Path(tempfile.mkdtemp(prefix="mox-docs-"))
    tests = []
    examples = 0
    for page in pages:
        name = page.resolve().relative_to(source)
        try:
            blocks = list(runnable_blocks(page.read_text(encoding="utf-8")))
        except ValueError as error:
            sys.exit(f"check-docs: {name}: {error}")
        if not blocks:
            continue
        examples += len(blocks)
        test = scratch / (str(name).replace("/", "_") + ".t")
        test.write_text(cram_text(name, blocks, source, build), encoding="utf-8")
        tests.append(test)

    env = dict(os.environ)
    tool_dirs = [str(build / d) for d in ("tools/mox", "tools/phone", "tools/dbwriter")]
    env["PATH"] = os.pathsep.join(tool_dirs + [env.get("PATH", "")])
    # A private directory per lookup, whatever the caller's environment says.
    env.pop("MOX_RESULT_DIR", None)
    env.pop("OST_LINKAPP_ENDPOINT", None)
    env.pop("HB_DBG_OUTPUT", None)
    env.pop("HB_TIMER_SCALE", None)
    print(f"check-docs: {examples} runnable examples in {len(tests)} pages")
    result = subprocess.run([cram, "--verbose", "--shell=/bin/bash"] + [str(t) for t in tests],
                            env=env, cwd=scratch)
    shutil.rmtree(scratch, ignore_errors=True)
    sys.exit(result.returncode)


if __name__ == "__main__":
    main()
