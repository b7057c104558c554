"""The manuals, the API reference, and the one place of version and date."""

import os
import re
import subprocess

import pytest
from conftest import BUILD, DATE, RELEASE, SOURCE, VERSION, need, run

MANUAL = BUILD / "docs" / "vostrel.1"
COMMANDS = [BUILD / "docs" / "vostrel-plot.1", BUILD / "docs" / "vostrel-evaluate.1"]
PAGES = [MANUAL] + [page for page in COMMANDS if page.exists()]


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_man_has_no_warnings(page):
    need("man")
    rendered = subprocess.run(
        ["man", "--warnings", "--local-file", page],
        env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"},
        capture_output=True,
        text=True,
    )
    assert rendered.returncode == 0
    assert rendered.stderr == ""
    assert "NAME" in rendered.stdout


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_mandoc_has_no_complaints(page):
    need("mandoc")
    assert run("mandoc", "-T", "lint", "-W", "style", page) == ""


def unformatted(text):
    """The text of a manual without its requests and escapes."""
    lines = [line for line in text.splitlines() if not re.match(r"\.(B|I|TP|PP|RS|RE)$", line)]
    text = " ".join(re.sub(r"^\.(BI|BR|IR|B|I|TP) ", "", line) for line in lines)
    return re.sub(r"\s+", " ", text.replace("\\-", "-").replace("\\ ", " ").replace('"', ""))


def test_manual_has_each_message_of_the_sources():
    """Messages that contain a file name are compared in pieces."""
    manual = unformatted(MANUAL.read_text())
    sources = [SOURCE / "main.cpp", *(SOURCE / "utils").glob("*.cpp")]
    text = "".join(re.sub(r'"\s*\n\s*"', "", path.read_text()) for path in sources)
    pattern = "[Aa]borted|not found!|OCCURRED|catched|succesfully"
    messages = re.findall(rf'"([^"\n]*(?:{pattern})[^"]*)"', text)
    messages += re.findall(r'out_of_range\("([^"]*)"\)', text)
    assert len(messages) >= 9
    for message in messages:
        assert re.sub(r"\s+", " ", message).strip() in manual, message


def examples_of_the_manual():
    examples = re.findall(r"^\.EX\n(.*?)^\.EE", MANUAL.read_text(), re.DOTALL | re.MULTILINE)
    return [text.replace("\\-", "-") for text in examples]


def test_example_of_the_manual(tmp_path):
    table, command, report = examples_of_the_manual()[:3]
    (tmp_path / "galaxies.csv").write_text(table)
    program, *arguments = command.split()
    assert program == "vostrel"
    run(os.environ["VOSTREL"], *arguments, cwd=tmp_path)
    assert (tmp_path / "report.txt").read_text() == report


def test_further_examples_of_the_manual(tmp_path):
    without_header, exchange, safely = examples_of_the_manual()[3:]
    (tmp_path / "survey.csv").write_text("id,zphot,zspec\n1,0.3,0.2\n2,,0.4\n3,0.5,0.6\n")
    (tmp_path / "vostrel").symlink_to(os.environ["VOSTREL"])
    path = {"PATH": f"{tmp_path}:{os.environ['PATH']}"}
    run("sh", "-ec", without_header, cwd=tmp_path, **path)
    assert "Data size  = 3\n" in (tmp_path / "report.txt").read_text()
    (tmp_path / "table.csv").rename(tmp_path / "survey.csv")
    printed = run("sh", "-ec", exchange + safely, cwd=tmp_path, TMPDIR=str(tmp_path), **path)
    assert re.findall(r"(\d+) (\S+)\n", printed)[-4:-1] == [
        ("2", "table.csv"), ("2", "internal.txt"), ("27", "report.txt")
    ]
    assert (tmp_path / "table.csv").read_text() == "0.2,0.3\n0.6,0.5\n"


def test_api_reference_has_no_warnings():
    need("doxygen")
    assert run("doxygen", BUILD / "docs" / "Doxyfile") == ""
    members = (BUILD / "doc-api" / "html" / "classUTILS.html").read_text()
    assert "CalculateMADDeltazNorm" in members


def test_version_and_date_stand_in_one_place():
    """That place is version.h."""
    header = (SOURCE / "version.h").read_text()
    assert f'kVersion = "{VERSION}"' in header and f'kReleaseDate = "{DATE}"' in header
    paths = [SOURCE / "CMakeLists.txt", SOURCE / "main.cpp"]
    for folder in ["cmake", "packaging", "docs", "utils", "statistics", "text"]:
        paths += (SOURCE / folder).rglob("*")
    for path in paths:
        if path.suffix in {".in", ".cmake", ".cpp", ".h", ".txt"}:
            text = path.read_text()
            assert VERSION not in text and DATE not in text, path
    console = subprocess.run([os.environ["VOSTREL"]], stdout=subprocess.PIPE, text=True).stdout
    assert f"{DATE}, release {RELEASE}\n" in console
    assert f'"{DATE}" "vostrel {VERSION}"' in MANUAL.read_text()
