"""The figures against stored pictures, small ones and with a tolerance.

VOSTREL_DRAW_BASELINE=1 draws the stored pictures anew: look at them before they are kept.
"""

import os
import pathlib
import shutil

import matplotlib
import matplotlib.style
import numpy as np
import pytest
from matplotlib.image import AxesImage
from matplotlib.legend import Legend
from matplotlib.testing.compare import compare_images
from matplotlib.text import Text
from PIL import Image
from vostrel.plot import compare_figure, diagnostic_figure
from vostrel.plot._format import MissingGlyphs

pytestmark = pytest.mark.filterwarnings("ignore:Glyph")  # MissingGlyphs names them

BASELINE = pathlib.Path(__file__).parent / "baseline"

#: Root mean square of the differences, of 255. It allows for other fonts and another smoothing
#: of lines; running medians that are shifted by 0.05 make 6 to 17.
TOLERANCE = 5


def survey(count):
    """Return references and estimates, one in forty far off, the same on every machine."""
    random = np.random.RandomState(1)
    zspec = random.gamma(2, 0.35, count)
    zphot = zspec + 0.03 * (1 + zspec) * random.normal(size=count)
    zphot[::40] = 3 * random.uniform(size=zphot[::40].size)
    return zspec, zphot


def draw_three(**options):
    zspec, zphot = survey(2000)
    wave = np.sin(1000 * zspec)
    estimates = {"one": zphot, "two": zphot + 0.05 * wave, "three": zspec + 0.02 * wave + 0.01}
    return compare_figure(zspec, estimates, **options)


def draw_eight(**options):
    zspec, zphot = survey(5000)
    noise = np.random.RandomState(2).normal(size=(8, 5000))
    estimates = {
        f"code {i}": zspec + (0.01 * i + (0.02 + 0.004 * i) * noise[i]) * (1 + zspec)
        for i in range(8)
    }
    return compare_figure(zspec, estimates, **options)


def draw_dark():
    with matplotlib.style.context("dark_background"):
        return diagnostic_figure(*survey(20000))


def draw_biased():
    zspec, zphot = survey(3000)
    return diagnostic_figure(zspec, zphot + 0.08 * (1 + zspec))


def draw_rounded():
    zspec, zphot = survey(400)
    return diagnostic_figure(np.round(zspec, 1), np.round(zphot, 1), panels=["residuals"])


def draw_missing_glyphs():
    with pytest.warns(MissingGlyphs, match="the font has no 測 光"):
        return diagnostic_figure(*survey(50), labels=("z 測光", "z"), panels=["estimates"])


LONG = ("spectroscopic redshift of the Legacy Survey, ninth data release, quality 4",
        "photometric redshift of a template fit, version 2.3, with priors")

PICTURES = {
    "page": lambda: diagnostic_figure(*survey(1000)),
    "page-density-table": lambda: diagnostic_figure(*survey(20000), table=True, title="Survey"),
    "column-few": lambda: diagnostic_figure(*survey(50), layout="column"),
    "column-density-table": lambda: diagnostic_figure(*survey(9000), layout="column", table=True),
    "linear-labels": lambda: diagnostic_figure(*survey(1000), log=False, labels=("x", "y")),
    "long-labels": lambda: diagnostic_figure(*survey(1000), labels=LONG),
    "missing-glyphs": draw_missing_glyphs,
    "dark": draw_dark,
    "biased": draw_biased,
    "rounded": draw_rounded,
    "compare-eight": draw_eight,
    "compare-page": draw_three,
    "compare-column": lambda: draw_three(layout="column"),
}


def compare(figure, name, folder):
    """Compare the figure with the stored picture, or draw that anew."""
    figure.savefig("drawn.png", dpi=50)
    if os.environ.get("VOSTREL_DRAW_BASELINE"):
        shutil.copy("drawn.png", folder / f"{name}.png")
    stored = shutil.copy(folder / f"{name}.png", "stored.png")
    assert compare_images(str(stored), "drawn.png", TOLERANCE) is None


@pytest.mark.parametrize("name", PICTURES)
def test_picture(name):
    stored = BASELINE / f"{name}.png"
    if stored.exists() and not os.environ.get("VOSTREL_DRAW_BASELINE"):
        software = Image.open(stored).text["Software"]
        if f"version{matplotlib.__version__}," not in software:
            pytest.skip(f"another matplotlib sets text and cells otherwise than {software}")
    compare(PICTURES[name](), name, BASELINE)


@pytest.mark.parametrize("name", PICTURES)
def test_lines_of_the_picture(name):
    """Every matplotlib draws them alike."""
    figure = PICTURES[name]()
    for artist in figure.findobj(lambda artist: isinstance(artist, (Text, Legend, AxesImage))):
        artist.set_visible(False)
    compare(figure, name, BASELINE / "lines")
