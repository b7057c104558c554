"""The links of the Markdown documents: files that exist, headings that exist."""

import pathlib
import re
import subprocess
import urllib.parse

import pytest

HOME = pathlib.Path(__file__).resolve().parents[2]


def documents():
    """Every Markdown file that is or may become part of the repository."""
    listed = subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"],
        cwd=HOME, stdout=subprocess.PIPE, text=True, check=True,
    ).stdout.split()
    return [name for name in listed if (HOME / name).exists()]


def without_code(text):
    text = re.sub(r"^(```+).*?^\1", "", text, flags=re.DOTALL | re.MULTILINE)
    text = re.sub(r"^    .*$", "", text, flags=re.MULTILINE)
    return re.sub(r"`[^`]*`", lambda code: code[0].replace("[", "").replace("]", ""), text)


def anchors(path):
    """The anchors that a repository's web page gives to the headings of a document."""
    found = []
    text = re.sub(r"^(```+).*?^\1", "", path.read_text(), flags=re.DOTALL | re.MULTILINE)
    for title in re.findall(r"^#+ +(.*?) *$", text, re.MULTILINE):
        title = re.sub(r"\[(.*?)\]\(.*?\)", r"\1", title)
        slug = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
        number = found.count(slug)
        found.append(f"{slug}-{number}" if number else slug)
    return found


@pytest.mark.parametrize("name", documents())
def test_links_lead_somewhere(name):
    document = HOME / name
    for link in re.findall(r"\]\(([^)\s]+)\)", without_code(document.read_text())):
        if re.match(r"[a-z]+:", link):  # the web
            continue
        file, _, anchor = link.partition("#")
        target = (document.parent / urllib.parse.unquote(file)).resolve() if file else document
        assert target.exists(), link
        assert target.is_relative_to(HOME), link
        assert not anchor or anchor in anchors(target), link


def test_links_were_found():
    text = without_code((HOME / "README.md").read_text())
    assert len(documents()) >= 15 and len(re.findall(r"\]\([^)\s]+\)", text)) >= 10
