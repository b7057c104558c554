"""Runs the examples of docs/files.md and docs/statistics.md."""

import gzip
import itertools
import os
import re
import shutil
import signal
import subprocess
import sys

import pytest
from support.commands import BY_HAND, ELSEWHERE, RUN, commands
from support.pages import DOCUMENTS, HOME, blocks

FILES = (HOME / "docs" / "files.md").read_text()
STATISTICS = (HOME / "docs" / "statistics.md").read_text()

#: Which test runs the code of each document, and checks the output that it shows.
RUN_BY = {
    "README.md": "python/test_documents.py",
    "conventions.md": "python/test_documents.py",
    "evaluate.md": "python/test_documents.py",
    "files.md": "end_to_end/test_written_examples.py",
    "library.md": "install/test_install.py",
    "lsdb.md": "ecosystem/test_lsdb.py",
    "plot.md": "python/test_documents.py",
    "python.md": "python/test_documents.py",
    "rail.md": "ecosystem/test_rail.py",
    "scale.md": "python/test_documents.py",
    "statistics.md": "end_to_end/test_written_examples.py",
    "uncertainties.md": "python/test_documents.py",
}
#: By the language of a block, the documents that may have it.
LANGUAGES = {
    "sh": {*RUN_BY, *BY_HAND},
    "python": set(RUN_BY) - {"library.md"},
    "cpp": {"library.md"},
    "cmake": {"library.md"},
    "yaml": {"rail.md"},
    "text": {*RUN_BY, *BY_HAND},
}


def test_each_block_of_the_documents_has_a_test():
    """The site runs the tutorials, and builds the pages of the reference."""
    with_code = set()
    for document in DOCUMENTS:
        assert not re.search(r"^\n {4}\S", document.read_text(), re.MULTILINE), document
        for line, language, code, _ in blocks(document):
            assert document.name in LANGUAGES.get(language, ()), f"{document}:{line}"
            with_code.add(document.name)
            if language == "sh":
                subprocess.run(["bash", "-n", "-c", code], check=True)
            elif language == "python":
                compile(code, document, "exec")
    assert with_code - BY_HAND == set(RUN_BY)
    for name, test in RUN_BY.items():
        assert name in (HOME / "tests" / test).read_text(), name


def test_each_command_that_the_pages_leave_out_runs_elsewhere():
    assert sorted(commands()) == sorted([*RUN, *ELSEWHERE])
    for command, script in ELSEWHERE.items():
        text = (HOME / script).read_text()
        for part in command.removeprefix("./").split(" && "):
            assert re.search(rf"^ *(exec )?(\./)?{re.escape(part)}( |$)", text, re.M), command


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
    return {"(empty)": "", "(spaces)": "   "}.get(cell, cell.strip("`"))


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
        assert run.returncode == (-signal.SIGABRT if "abort" in rows else 0)


def number_examples():
    """The pairs "field | value" of the section on what counts as a number."""
    names = {"NaN": "nan", "infinite": "inf"}
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


def test_run_and_report_show_the_example_table(vostrel):
    (vostrel.folder / "examples").mkdir()
    shutil.copy(HOME / "examples" / "redshifts.csv", vostrel.folder / "examples")
    run = vostrel("--stats", "examples/redshifts.csv", "report.txt", "0", "2", "3")
    lines = [line for line in run.stdout.decode().splitlines() if line]
    explained = FILES.split("## A run")[1].split("## Prepare")[0]
    assert re.findall(r"^\| `([^`]*)` \|", explained, re.M) == lines[2:]

    report = (vostrel.folder / "report.txt").read_text().splitlines()
    section = re.search(r"## The report.*?## error", FILES, re.S).group(0)
    shown = re.search(r"```text\n(.*?)```", section, re.S)[1].split("\n")
    assert set(shown) - {"..."} <= {line.strip() for line in report}
    assert len(shown) > 5


def shell(command, folder, **environment):
    """Runs a command of the documents; `python3` is the Python that runs the tests."""
    tools = folder / "tools"
    tools.mkdir(exist_ok=True)
    if not (tools / "python3").exists():
        (tools / "python3").symlink_to(sys.executable)
    path = f"{tools}:{os.environ['PATH']}"
    options = {"cwd": folder, "env": {**os.environ, "PATH": path, **environment}}
    return subprocess.run(["bash", "-c", command], capture_output=True, text=True, **options)


PREPARE = FILES.split("## Prepare your table")[1].split("## Run it safely")[0]
#: The commands to start with and the filters of docs/files.md, by the table that needs them.
STARTS = dict(re.findall(r"^\| (?:a|compressed)(.*?) \| `(.*)` \|$", PREPARE, re.M))
FILTERS = dict(re.findall(r"^\| ((?:was|has|separates) .*?) \| `(.*)` \|$", PREPARE, re.M))
PLAUSIBLE = re.search(r"^(awk .*-v n=.*) table.csv > ", PREPARE, re.M).group(1)

SURVEY = "1,0.1,0.12\n2,0.2,0.19\n3,0.3,0.31\n"


def frame():
    """The survey and an object without an estimate."""
    pandas = pytest.importorskip("pandas")
    zspec, zphot = [0.1, 0.15, 0.2, 0.3], [0.12, None, 0.19, 0.31]
    return pandas.DataFrame({"zphot": zphot, "name": list("abcd"), "zspec": zspec})


def write_fits(path):
    upper = frame().rename(columns=str.upper).rename(columns=lambda name: name.replace("Z", "Z_"))
    pytest.importorskip("astropy.table").Table.from_pandas(upper).write(path)


def write_parquet(path):
    """A Parquet file, or a pickle that read_parquet reads if pandas has no engine for Parquet."""
    try:
        frame().to_parquet(path)
    except ImportError:
        frame().to_pickle(path)
        stand_in = "import pandas\npandas.read_parquet = pandas.read_pickle\n"
        (path.parent / "sitecustomize.py").write_text(stand_in)


#: For each start: the file that it reads, and a function that writes it.
FILES_OF = {
    " text file": ("survey.csv", lambda path: path.write_text(SURVEY)),
    "": ("survey.csv.gz", lambda path: path.write_bytes(gzip.compress(SURVEY.encode()))),
    " FITS table": ("survey.fits", write_fits),
    " Parquet file": ("survey.parquet", write_parquet),
}
#: For each filter: what makes a table need it.
SPOIL = {
    "was saved on Windows or by a spreadsheet": lambda text: "\ufeff" + text.replace("\n", "\r\n"),
    "has comment lines or empty lines": lambda text: "# by hand\n" + text.replace("\n", "\n\n", 1),
    "has a header line": lambda text: "id,zspec,zphot\n" + text,
    "separates by `;`": lambda text: text.replace(",", ";"),
    "separates by `;`, with decimal commas": lambda text: text.translate(
        str.maketrans(",.", ";,")
    ),
    "separates by tabs": lambda text: text.replace(",", "\t"),
    "separates by spaces": lambda text: " " + text.replace(",", "  "),
    "has quotes": lambda text: re.sub(
        r"^(\d),([^,]*)", r'"M \1, \"\"core\"\"","\2"', text, flags=re.M
    ),
    "has other columns, here references in 3 and estimates in 2": lambda text: re.sub(
        r",(.*),(.*)", r",\2,\1", text
    ),
}


def chains():
    """Every pair of filters that one table may need, and the longest chains."""
    separators = [name for name in FILTERS if name.startswith("separates")]
    others = [name for name in FILTERS if name not in separators]
    for pair in itertools.combinations(FILTERS, 2):
        if not set(pair) <= set(separators) and set(pair) != {"separates by spaces", "has quotes"}:
            yield pair
    for separator in separators[:3]:
        yield [name for name in FILTERS if name == separator or name in others]


def run_chain(vostrel, start, names):
    chain = " | ".join([start, *(FILTERS[name] for name in names), PLAUSIBLE])
    done = shell(chain + " > table.csv", vostrel.folder, PYTHONPATH=str(vostrel.folder))
    assert done.stderr == ""
    vostrel("--stats", "table.csv", "report.txt", "0", "2", "3")
    return vostrel.read("internal.txt")


def test_every_preparation_is_tested():
    assert list(STARTS) == list(FILES_OF)
    assert list(FILTERS) == list(SPOIL)


@pytest.mark.parametrize("start", STARTS)
def test_each_start_gives_a_table_that_is_read(vostrel, start):
    name, write = FILES_OF[start]
    write(vostrel.folder / name)
    assert run_chain(vostrel, STARTS[start], []) == "0 0.1 0.12\n1 0.2 0.19\n2 0.3 0.31\n"


def test_filters_chain(vostrel):
    assert len(list(chains())) > 25
    for names in chains():
        text = SURVEY
        for name in reversed(names):
            text = SPOIL[name](text)
        vostrel.write("survey.csv", text)
        rows = run_chain(vostrel, STARTS[" text file"], names)
        assert rows == "0 0.1 0.12\n1 0.2 0.19\n2 0.3 0.31\n", names


def test_the_chain_of_the_document(vostrel):
    command = re.search(r"^(gunzip .*)$", PREPARE, re.M).group(1)
    survey = "# made by hand\nid;zspec;zphot\n" + SURVEY.replace(",", ";")
    (vostrel.folder / "survey.csv.gz").write_bytes(gzip.compress(survey.encode()))
    assert shell(command, vostrel.folder).stderr == ""
    assert vostrel.read("table.csv") == SURVEY


def test_objects_without_a_value_are_removed(vostrel):
    kept = ["1,0.1,0.12", "2, 1e-2 ,+.3", ",0.5,0.4", "4,0,-0.01,,x"]
    dropped = ["id,zspec,zphot", "", "# a, b", "5,,0.3,0.4", "6,0.3", "7,nan,0.1", "8,0.1,NaN"]
    dropped += ["9,inf,0.1", "10,NULL,0.1", "11,0.1,-99", "12,-1,0.1", "13,999,0.1", "14,0.1,99.0"]
    lines = [line for pair in zip(dropped, kept) for line in pair] + dropped[len(kept) :]
    vostrel.write("survey.csv", "\n".join(lines) + "\n")
    assert shell(PLAUSIBLE + " < survey.csv > table.csv", vostrel.folder).stderr == ""
    assert vostrel.read("table.csv") == "2,0.1,0.12\n4, 1e-2 ,+.3\n6,0.5,0.4\n8,0,-0.01\n"
    count = re.search(r"^(wc -l .*)$", FILES, re.M).group(1)
    run = vostrel("--stats", "table.csv", "report.txt", "0", "2", "3")
    assert b"Data size  = " + shell(count, vostrel.folder).stdout.strip().encode() in run.stdout


def safe_run():
    section = FILES.split("## Run it safely")[1].split("In a new folder")[0]
    return re.search(r"```sh\n(.*?)```", section, re.S)[1]


def test_safe_run_sees_a_complete_run(vostrel):
    vostrel.write("table.csv", "1,0.1,0.12\n2,0.2,0.19\n")
    (vostrel.folder / "tools").mkdir()
    (vostrel.folder / "tools" / "vostrel").symlink_to(vostrel.path)
    (vostrel.folder / "new").mkdir()
    done = shell(safe_run(), vostrel.folder, TMPDIR=str(vostrel.folder / "new"))
    assert done.stdout.endswith("complete\n")
    assert done.stderr == ""


@pytest.mark.parametrize(
    "table, tool",
    [
        ("1,0.1,0.12\n\n2,0.2,0.19\n", 'exec {program} "$@"'),  # ends at the empty line
        ("1,0.1,0.12\n2,0.2,0.19\n", '{program} "$@"; rm report.txt'),
        ("1,0.1,0.12\n2,0.2,0.19\n", '{program} "$@"; truncate -s -3 internal.txt'),
        ("1,0.1,0.12\n2,0.2,0.19\n", '{program} "$@"; truncate -s 99 report.txt'),
    ],
)
def test_safe_run_sees_that_something_is_missing(vostrel, table, tool):
    vostrel.write("table.csv", table)
    (vostrel.folder / "tools").mkdir()
    vostrel.write("tools/vostrel", "#!/bin/sh\n" + tool.format(program=vostrel.path) + "\n")
    (vostrel.folder / "tools" / "vostrel").chmod(0o755)
    (vostrel.folder / "new").mkdir()
    done = shell(safe_run(), vostrel.folder, TMPDIR=str(vostrel.folder / "new"))
    assert "Data size" in done.stdout
    assert not done.stdout.endswith("complete\n")


def statistics(vostrel, table):
    """The values of the report on the lines of a table of two columns, by their labels."""
    vostrel.write("table.csv", "".join(line + "\n" for line in table))
    vostrel("--stats", "table.csv", "report.txt", "0", "1", "2")
    return dict(re.findall(r"^(\S.*\S) += (.*)$", vostrel.read("report.txt"), re.M))


def test_the_example_of_five_objects_shows_their_report(vostrel):
    section = STATISTICS.split("## An example")[1].split("## NaN")[0]
    report = statistics(vostrel, re.findall(r"^\| `(.*?)` \|", section, re.M))
    shown = re.findall(r"^\| ([A-Zbso]\S*(?: >\S*)?) \| (.*) \| (.*) \|$", section, re.M)
    assert len(shown) == 11
    for label, delta, normalized in shown:
        name = label.replace("outliers", "outliers norm") if " " in label else label + " norm"
        name = name.replace(") norm", " norm)")
        assert report[label] == re.split(" = |: ", delta)[-1], label
        assert report[name] == re.split(" = |: ", normalized)[-1], name


def nan_places():
    """The rows "place | order after sorting | MAD" for one NaN among four residuals."""
    return re.findall(r"^\| (first|in the middle|last) \| .*? \| (.*) \|$", STATISTICS, re.M)


def test_median_depends_on_the_position_of_a_nan(vostrel):
    assert len(nan_places()) == 3
    for place, mad in nan_places():
        table = ["0.4,0", "0.3,0", "0.2,0", "0.1,0"]
        table.insert({"first": 0, "in the middle": 2, "last": 4}[place], "nan,0")
        assert statistics(vostrel, table)["MAD"] == mad, place


def test_rounding_and_infinities_are_as_the_document_says(vostrel):
    assert "`13.5937%`" in STATISTICS
    assert statistics(vostrel, ["1,0.5"] * 87 + ["1,1"] * 553)["outliers >0.15"] == "13.5937%"

    assert "sigma 1.38778e-17" in STATISTICS
    same = statistics(vostrel, ["0.1,0"] * 3)
    assert (same["sigma"], same["outliers >4sigma"]) == ("1.38778e-17", "100%")

    infinite = [statistics(vostrel, ["inf,0", "0.2,0.1", "0.4,0.1"][:n]) for n in (1, 2, 3)]
    assert [report["MAD"] for report in infinite] == ["inf", "inf", "0.3"]
    assert [report["MAD(Delta)"].strip("-") for report in infinite] == ["nan", "nan", "0.2"]
