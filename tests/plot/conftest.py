"""What the tests of the figures share."""

import signal
import subprocess
import sys

import numpy as np
import pytest
from vostrel.plot import _command

# Four objects of zspec 1. The second residual is half the first:
# 0.1, 0.2, 0.4 and -0.5. The report below was worked out by hand from these.
ZPHOT = (0.9, 0.8, 0.6, 1.5)
FOUR = "".join(f"{i} 1 {z:g}\n" for i, z in enumerate(ZPHOT))
REPORT = """\
Data size  = 4

Statistics on delta [col1 - col2]:
bias             = 0.05
sigma            = 0.33541
RMS              = 0.339116
MAD              = 0.3
NMAD             = 0.44478
MAD(Delta)       = 0.15
outliers >0.15   = 75%
outliers >1sigma = 50%
outliers >2sigma = 0%
outliers >3sigma = 0%
outliers >4sigma = 0%

Statistics on normalized delta [(col1 - col2) / (1 + col1)]:
bias norm             = 0.025
sigma norm            = 0.167705
RMS norm              = 0.169558
MAD norm              = 0.15
NMAD norm             = 0.22239
MAD(Delta norm)       = 0.075
outliers norm >0.15   = 50%
outliers norm >1sigma = 50%
outliers norm >2sigma = 0%
outliers norm >3sigma = 0%
outliers norm >4sigma = 0%
"""


def write(text, name="internal.txt"):
    """Write the text to the file."""
    with open(name, "w", encoding="utf-8") as stream:
        stream.write(text)
    return name


def write_table(zspec, zphot, name="internal.txt"):
    """Write the objects as a run of vostrel does."""
    rows = enumerate(zip(zspec, zphot))
    return write("".join(f"{i} {s:g} {p:g}\n" for i, (s, p) in rows), name)


def catalogue(count, seed=1):
    """Return zspec and zphot of objects of a plausible survey."""
    rng = np.random.default_rng(seed)
    zspec = rng.gamma(2, 0.35, count)
    return zspec, zspec + 0.03 * (1 + zspec) * rng.normal(size=count)


def run(*argv, **options):
    """Run the program as a user does."""
    return subprocess.run(
        [sys.executable, "-m", "vostrel.plot", *argv],
        capture_output=True,
        text=True,
        timeout=120,
        **options,
    )


def by_gid(parent, gid):
    """Return what was drawn on the parent under this name."""
    return [artist for artist in parent.findobj() if artist.get_gid() == gid]


@pytest.fixture(autouse=True)
def folder(tmp_path, monkeypatch):
    """Run every test in an empty folder of its own."""
    monkeypatch.chdir(tmp_path)
    keep = signal.getsignal(signal.SIGTERM)
    yield tmp_path
    signal.signal(signal.SIGTERM, keep)


@pytest.fixture
def figure_of(monkeypatch):
    """Return a function that runs the program and returns the drawn figure."""

    def draw(*argv):
        figures = []
        with monkeypatch.context() as patch:
            patch.setattr(_command, "save", lambda figure, *_: figures.append(figure))
            assert _command.main(list(argv)) == 0
        return figures[0]

    return draw


@pytest.fixture
def failure(monkeypatch, capsys, tmp_path):
    """Return a function that runs the program, which must fail as promised, and returns its one
    line."""

    def fail(*argv):
        before = sorted(tmp_path.iterdir())
        assert _command.main(list(argv)) == 2
        out, err = capsys.readouterr()
        assert out == ""
        assert err.startswith("vostrel-plot: ")
        assert err.count("\n") == 1 and err.endswith("\n")
        assert sorted(tmp_path.iterdir()) == before, "a failure leaves no file"
        return err

    return fail
