"""The documents show what the program does: each example in README.md and docs/files.md is run."""

import pathlib
import re
import shutil
import signal

import pytest

HOME = pathlib.Path(__file__).resolve().parents[2]
README = (HOME / "README.md").read_text()
FILES = (HOME / "docs" / "files.md").read_text()


def table_examples():
    """The rows of "table | flag, columns | rows of internal.txt | remark" in docs/files.md."""
    examples, rows = [], ""
    for line in FILES.splitlines():
        found = re.match(r"\| (.*?) \| (\d), (\d) (\d) \| (.*?) \| (.*?) ?\|$", line)
        if found:
            table, *arguments, shown, _ = found.groups()
            rows = rows if shown == "the same" else shown
            examples.append((table, arguments, rows))
    return examples


def line_of(cell):
    return {"(empty)": "", "(blanks)": "   "}.get(cell, cell.strip("`"))


@pytest.mark.parametrize("table, arguments, rows", table_examples())
def test_table_gives_the_rows_shown(vostrel, table, arguments, rows):
    text = "\n".join(line_of(cell) for cell in table.split(" ⏎ ")) + "\n"
    (vostrel.folder / "table.csv").write_text(text)
    run = vostrel("--stats", "table.csv", "report.txt", *arguments)
    internal = vostrel.folder / "internal.txt"
    if rows.startswith("refused"):
        columns = {"one": 1, "two": 2}[rows.split()[1]]
        assert run.returncode == 255
        assert f"col number {columns}\n".encode() in run.stdout
        assert not internal.exists()
    else:
        shown = [] if rows.startswith("none") else re.findall(r"`([^`]*)`", rows)
        assert internal.read_text().splitlines() == shown
        assert run.returncode == (-signal.SIGABRT if "abnormal" in rows else 0)


def number_examples():
    """The pairs "field | value" of the section on what counts as a number."""
    names = {"not a number": "nan", "infinite": "inf"}
    section = FILES.split("### What counts")[1].split("A NUL")[0]
    examples = []
    for line in section.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if len(cells) == 4 and cells[0] not in ("Field", "---"):
            for fields, value in (cells[:2], cells[2:]):
                for field in re.findall(r"`([^`]*)`", fields):
                    examples.append((field, names.get(value, value)))
    return examples


@pytest.mark.parametrize("field, value", number_examples())
def test_field_gives_the_value_shown(vostrel, field, value):
    (vostrel.folder / "table.csv").write_text(f"{field},7\n")
    vostrel("--stats", "table.csv", "report.txt", "0", "1", "2")
    assert (vostrel.folder / "internal.txt").read_text() == f"0 {value} 7\n"


def test_examples_were_found():
    assert len(table_examples()) >= 20
    assert len(number_examples()) >= 20


def test_readme_and_report_show_the_run_on_the_example_table(vostrel):
    (vostrel.folder / "examples").mkdir()
    shutil.copy(HOME / "examples" / "redshifts.csv", vostrel.folder / "examples")
    run = vostrel("--stats", "examples/redshifts.csv", "report.txt", "0", "2", "3")
    lines = [line for line in run.stdout.decode().splitlines() if line]
    explained = README.split("## A run")[1].split("## The figure")[0]
    assert re.findall(r"^\| `([^`]*)` \|", explained, re.M) == lines[2:]

    report = (vostrel.folder / "report.txt").read_text().splitlines()
    section = re.search(r"## The report.*?## error", FILES, re.S).group(0)
    shown = [line.strip() for line in section.splitlines() if line.startswith("    ")]
    assert set(shown) - {"..."} <= {line.strip() for line in report}
    assert len(shown) > 5
