"""The page of --report: what it says, for whom, and in a browser."""

import html
import html.parser
import json
import pathlib
import re
import shutil
import subprocess

import numpy as np
import pandas as pd
import pytest


class Page(html.parser.HTMLParser):
    """The elements of a page: tag and attributes, and the text."""

    def __init__(self, path):
        super().__init__()
        self.source = pathlib.Path(path).read_text(encoding="utf-8")
        self.elements, self.text = [], ""
        self.feed(self.source)

    def handle_starttag(self, tag, attributes):
        self.elements.append((tag, dict(attributes)))

    def handle_data(self, data):
        self.text += f" {data}"

    def all(self, *tags):
        return [(tag, attributes) for tag, attributes in self.elements if tag in tags]


@pytest.fixture
def report(evaluate, columns):
    columns["zphot"][:7] = -99
    pd.DataFrame(columns).to_csv("cat.csv", index=False)
    evaluate("cat.csv", "zspec", "zphot", "forest", "--by", "imag", "--bins", "18,20,22",
             "--where", "quality > 0 & imag < 24", "--missing", "-99", "--errors", "bootstrap",
             "--resamples", "20", "--seed", "1", "--report", "report.html")
    return Page("report.html")


def test_page_has_every_part(report, evaluate):
    text = " ".join(report.text.split())
    rows = json.loads(evaluate(
        "cat.csv", "zspec", "zphot", "forest", "--format", "json", "--missing", "-99",
        "--where", "quality > 0 & imag < 24",
    ))["rows"]
    assert f"{rows['used']:,}" in text and f"not selected {rows['not_selected']}" in text
    assert "quality > 0 & imag < 24" in text and "mean missing: -99" in text
    assert "zphot - forest" in text and "zphot: delta norm in bins of imag" in text
    assert "vostrel-evaluate cat.csv zspec zphot forest --by imag" in text
    assert "reference − estimate" in text
    assert len(report.source) < 5 << 20


def test_page_is_self_contained(report):
    addresses = [
        value
        for _, attributes in report.elements
        for name, value in attributes.items()
        if name in ("src", "srcset", "href", "data", "action", "poster")
    ]
    assert len(addresses) > 8
    assert all(address.startswith(("#", "data:")) for address in addresses)
    assert not report.all("script", "iframe", "object", "base")
    assert "url(" not in report.source and "@import" not in report.source


def test_page_works_with_screen_readers_and_keyboards(report):
    assert report.all("html")[0][1]["lang"] == "en"
    levels = [int(tag[1]) for tag, _ in report.all("h1", "h2", "h3")]
    assert levels == [1] + [2] * 7
    assert len(report.all("table")) == len(report.all("caption")) > 5
    assert all(attributes["scope"] in ("col", "row") for _, attributes in report.all("th"))
    images = report.all("img")
    assert len(images) == 2 and all(len(attributes["alt"]) > 60 for _, attributes in images)
    # Wide tables are scrolled by the keyboard, and have a name.
    wide = [a for _, a in report.all("div") if a.get("class") == "wide"]
    assert len(wide) == len(report.all("table"))
    assert all(a["tabindex"] == "0" and a["role"] == "region" and a["aria-label"] for a in wide)
    ids = [attributes["id"] for _, attributes in report.elements if "id" in attributes]
    links = [attributes["href"] for _, attributes in report.all("a")]
    assert len(set(ids)) == len(ids) and {link[1:] for link in links} <= set(ids)


def luminance(colour):
    """The relative luminance of #rgb or #rrggbb, as WCAG defines it."""
    digits = colour[1:] if len(colour) == 7 else "".join(2 * c for c in colour[1:])
    parts = [int(digits[i : i + 2], 16) / 255 for i in (0, 2, 4)]
    linear = [p / 12.92 if p <= 0.03928 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def test_text_has_contrast_in_light_and_dark(report):
    palettes = re.findall(r":root \{([^}]*)\}", report.source)
    assert len(palettes) == 3  # light, dark, print
    for palette in palettes:
        colours = dict(re.findall(r"--(\w+): (#\w+)", palette))
        for text in ("ink", "soft", "link"):
            for ground in ("paper", "band"):
                one, other = sorted(luminance(colours[name]) for name in (text, ground))
                assert (other + 0.05) / (one + 0.05) >= 4.5


def test_names_are_text_everywhere(evaluate):
    names = ["<script>alert(1)</script>", '"><img src=x>', "{{ 7 * 7 }}", "$\\frac$_^"]
    rng = np.random.default_rng(1)
    pd.DataFrame(rng.uniform(0, 1, (50, 4)), columns=names).to_csv("t.csv", index=False)
    evaluate("t.csv", *names, "--bins", "2", "--report", "report.html")
    page = Page("report.html")
    assert not page.all("script") and all(name in page.text for name in names)
    assert not [a for _, a in page.all("img") if a["src"] == "x"]


def test_figures_that_are_not_drawn(evaluate, columns):
    pd.DataFrame(columns).to_csv("cat.csv", index=False)
    evaluate("cat.csv", "zspec", "zphot", "--bins", "3", "--memory", "0", "--report", "large.html")
    page = Page("large.html")
    assert "Not drawn: the columns are larger than --memory allows" in page.text
    assert len(page.all("img")) == 1  # the bins


def test_same_data_give_the_same_bytes(evaluate, columns):
    pd.DataFrame(columns).to_csv("cat.csv", index=False)
    words = ("cat.csv", "zspec", "zphot", "--bins", "3", "--report", "r.html")
    pages = []
    for _ in range(2):
        evaluate(*words)
        pages.append(pathlib.Path("r.html").read_bytes())
    assert pages[0] == pages[1]


PROBE = """<!DOCTYPE html><iframe style="width:%dpx; height:900px; border:0" srcdoc="%s"></iframe>
<script>addEventListener("load", () => {
  const frame = document.querySelector("iframe");
  const page = frame.contentDocument;
  document.title = JSON.stringify({
    tooWide: page.documentElement.scrollWidth - page.documentElement.clientWidth,
    images: [...page.images].map(image => image.naturalWidth > 0),
    requests: frame.contentWindow.performance.getEntriesByType("resource").map(one => one.name),
  });
});</script>"""


@pytest.mark.parametrize("width", [360, 1280])
def test_in_a_browser(report, width):
    path = shutil.which("chromium")
    if path is None:
        pytest.fail("chromium is missing: install the Debian package chromium", pytrace=False)
    probe = pathlib.Path("probe.html")
    probe.write_text(PROBE % (width, html.escape(report.source)), encoding="utf-8")
    run = subprocess.run(
        [path, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
         "--no-first-run", "--user-data-dir=profile", "--enable-logging=stderr",
         "--virtual-time-budget=10000", "--dump-dom", probe.resolve().as_uri()],
        capture_output=True, text=True, timeout=120,
    )
    found = json.loads(html.unescape(re.search("<title>(.*?)</title>", run.stdout)[1]))
    assert found == {"tooWide": 0, "images": [True, True], "requests": []}
    assert "CONSOLE" not in run.stderr
