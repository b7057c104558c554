"""Settings of the site, which scripts/site builds.

Its sources are the documents of the repository. The README is its first page.
"""

import pathlib
import re

HOME = pathlib.Path(__file__).resolve().parents[2]

project = "vostrel"
copyright = "the vostrel developers"
version = release = re.search(r'kVersion = "([^"]+)"', (HOME / "version.h").read_text())[1]

extensions = ["myst_nb", "sphinx.ext.autodoc", "numpydoc"]
root_doc = "README"
include_patterns = [
    "README.md", "CHANGELOG.md", "CODE_OF_CONDUCT.md", "CONTRIBUTING.md",
    "docs/*.md", "docs/reference/*.md", "docs/tutorials/*.md",
]
highlight_language = "text"  # of blocks that name none
smartquotes = False  # "--where" has two hyphens

nitpicky = True

# The anchors that a repository's web page gives to headings.
myst_heading_anchors = 4

nb_execution_mode = "force"
nb_execution_in_temp = True
nb_execution_raise_on_error = True
nb_execution_timeout = 300
nb_merge_streams = True

autodoc_typehints = "none"  # numpydoc's Parameters have them
autodoc_member_order = "bysource"
numpydoc_show_class_members = False
# Each name has a docstring, with each of its parameters and no others, and with what it returns.
numpydoc_validation_checks = {"GL08", "PR01", "PR02", "PR07", "RT01", "RT03", "YD01"}
# Results, which nobody constructs, have attributes; their methods one sentence.
numpydoc_validation_exclude = {r"vostrel(\.\w+)?\.[A-Z]"}

html_theme = "furo"
html_title = f"vostrel {release}"
html_static_path = ["site.css"]
html_extra_path = ["index.html"]
html_favicon = "icon.svg"
html_css_files = ["site.css"]
html_copy_source = False
html_show_sphinx = False


def add_contents(app, name, source):
    """Give the first page the contents, which a reader of the repository doesn't need."""
    if name == root_doc:
        source[0] += (HOME / "docs" / "site" / "contents.md").read_text()


def setup(app):
    app.connect("source-read", add_contents)
