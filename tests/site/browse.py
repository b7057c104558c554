"""Opens the site that scripts/site built: links, anchors, names, console, search, widths.

    browse.py FOLDER [SCREENSHOTS]     exits with 1 and a line for each fault
"""

import functools
import html.parser
import http.server
import importlib
import pathlib
import sys
import threading
import urllib.parse

from playwright.sync_api import sync_playwright
from sphinx.util.inventory import InventoryFile

#: The modules that have public names of their own.
MODULES = ["vostrel", "vostrel.dask", "vostrel.mpi", "vostrel.plot", "vostrel.rail"]

WIDTHS = [400, 1400]

#: What a reader types, and a page that must be found.
SEARCHES = {
    "NMAD": "docs/statistics.html",
    "point_statistics": "docs/reference/functions.html",
    "vostrel-evaluate": "docs/reference/vostrel-evaluate.html",
    "error.log": "docs/files.html",
}

#: In pixels: how far the page is wider than the window.
TOO_WIDE = "document.documentElement.scrollWidth - document.documentElement.clientWidth"


class Page(html.parser.HTMLParser):
    """The links and the anchors of a page, and whether it only leads to another one."""

    def __init__(self, path):
        super().__init__()
        self.links, self.anchors, self.leads_on = [], {"", "top"}, False
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attributes):
        if ("http-equiv", "refresh") in attributes:
            self.leads_on = True
            self.links.append(dict(attributes)["content"].split("url=")[1])
        for name, value in attributes:
            if name in ("href", "src"):
                self.links.append(value)
            elif name == "id":
                self.anchors.add(value)


def broken_links(site, pages):
    """Yield the links within the site that lead nowhere."""
    for path, page in pages.items():
        for link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            name = urllib.parse.unquote(parts.path)
            target = (path.parent / name).resolve() if name else path
            target = target / "index.html" if target.is_dir() else target
            anchor = urllib.parse.unquote(parts.fragment)
            if not target.exists():
                yield f"{path.relative_to(site)}: no file {link}"
            elif target in pages and anchor not in pages[target].anchors:
                yield f"{path.relative_to(site)}: no anchor {link}"


def missing_names(site):
    """Yield the public names that the reference doesn't have."""
    with open(site / "objects.inv", "rb") as file:
        inventory = InventoryFile.load(file, "", lambda base, name: name)
    described = {name for kind in inventory if kind.startswith("py:") for name in inventory[kind]}
    for module in MODULES:
        for name in importlib.import_module(module).__all__:
            if name != "__version__" and f"{module}.{name}" not in described:
                yield f"the reference has no {module}.{name}"


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def look_at(page, address, name, screenshots):
    """Yield how a page is wider than each window."""
    page.goto(f"{address}/{name}")
    for width in WIDTHS:
        page.set_viewport_size({"width": width, "height": 1000})
        extra = page.evaluate(TOO_WIDE)
        if extra > 0:
            yield f"{name} is {extra} pixels too wide for {width}"
        if screenshots:
            shot = screenshots / f"{name.removesuffix('.html').replace('/', '-')}-{width}.png"
            page.screenshot(path=shot, full_page=True)


def search(page, address, words, expected):
    """Yield a line if a search doesn't find a page."""
    page.goto(f"{address}/README.html")
    page.fill(".sidebar-search", words)
    page.press(".sidebar-search", "Enter")
    try:
        page.wait_for_selector(f"#search-results a[href*='{expected}']")
    except Exception as error:
        yield f"a search for {words} doesn't find {expected}: {type(error).__name__}"


def watch(page, address):
    """Return a list to which the page adds what goes wrong."""
    faults = []

    def response(found):
        if found.status >= 400 and not is_icon(found.url):
            faults.append(f"{page.url}: {found.url} is {found.status}")

    def console(message):
        if message.type in ("error", "warning") and not is_icon(message.location["url"]):
            faults.append(f"{page.url}: console: {message.text}")

    def request(asked):
        if not asked.url.startswith((address, "data:")):
            faults.append(f"{page.url} asks for {asked.url}")

    def failed(asked):  # the search fetches the pages that it finds, until the browser leaves it
        if asked.failure != "net::ERR_ABORTED":
            faults.append(f"{page.url}: {asked.url}: {asked.failure}")

    page.on("response", response)
    page.on("console", console)
    page.on("request", request)
    page.on("requestfailed", failed)
    page.on("pageerror", lambda error: faults.append(f"{page.url}: {error}"))
    return faults


def is_icon(url):
    """Whether the browser asked for this by itself: Doxygen's pages name no icon."""
    return url.endswith("/favicon.ico")


def browse(names, address, screenshots):
    """Yield the faults that a browser sees."""
    with sync_playwright() as playwright:
        browser = playwright.chromium.launch(
            executable_path="/usr/bin/chromium", args=["--no-sandbox", "--disable-dev-shm-usage"]
        )
        page = browser.new_page()
        faults = watch(page, address)
        for name in names:
            yield from look_at(page, address, name, screenshots)
        for words, expected in SEARCHES.items():
            yield from search(page, address, words, expected)
        browser.close()
        yield from faults


def main(folder, screenshots=None):
    site = pathlib.Path(folder).resolve()
    screenshots = screenshots and pathlib.Path(screenshots)
    if screenshots:
        screenshots.mkdir(exist_ok=True)
    server = http.server.ThreadingHTTPServer(
        ("127.0.0.1", 0), functools.partial(Quiet, directory=site)
    )
    threading.Thread(target=server.serve_forever, daemon=True).start()
    address = f"http://127.0.0.1:{server.server_port}"
    pages = {path: Page(path) for path in sorted(site.rglob("*.html"))}
    # A browser leaves the others before it can be asked anything.
    stay = [str(path.relative_to(site)) for path, page in pages.items() if not page.leads_on]
    faults = [
        *broken_links(site, pages),
        *missing_names(site),
        *browse(stay, address, screenshots),
    ]
    for fault in faults:
        print(fault, file=sys.stderr)
    print(f"{len(pages)} pages, {len(faults)} faults")
    sys.exit(bool(faults))


if __name__ == "__main__":
    main(*sys.argv[1:])
