#!/usr/bin/env python3
"""The code blocks of the documents, and a reader who follows a page.

    tests/support/pages.py docs/python.md

runs each block of the page in the current folder, from the first to the last. Blocks that install
or compile are left out, unless --install is the first argument.
"""

import pathlib
import re
import subprocess
import sys

HOME = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [*HOME.glob("*.md"), *(HOME / "docs").glob("*.md")]
BLOCK = re.compile(r"^```([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
INSTALLS = re.compile(r"(pip|apt) install|cmake |g\+\+ |scripts/")
NEEDS_A_CLUSTER = re.compile(r"dask_jobqueue")  # test_dask.py has a stand-in


def blocks(page):
    """Return (line, language, code, file) of each block. The text may name a file for it."""
    text = pathlib.Path(page).read_text()
    found = []
    for match in BLOCK.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        file = re.search(r"[Tt]he file `([^`]+)`:\n+$", text[: match.start()])
        found.append((line, match[1], match[2], file and file[1]))
    return found


def follow(page, install=False):
    """Run the blocks of a page in order. After each, yield it and the names that Python has."""
    names = {}
    for line, language, code, file in blocks(page):
        if NEEDS_A_CLUSTER.search(code) or (INSTALLS.search(code) and not install):
            continue
        print(f"== {page}:{line}", flush=True)
        if file:
            pathlib.Path(file).write_text(code)
        elif language == "sh":
            subprocess.run(["bash", "-eo", "pipefail", "-c", code], check=True)
        elif language == "python":
            exec(compile("\n" * line + code, str(page), "exec"), names)
        yield code, names


if __name__ == "__main__":
    with_installs = sys.argv[1:2] == ["--install"]
    for argument in sys.argv[1 + with_installs :]:
        for _ in follow(argument, with_installs):
            pass
