"""What the tests of vostrel-evaluate share."""

import signal

import numpy as np
import pytest
from vostrel.evaluate import _command


@pytest.fixture(autouse=True)
def empty_folder(tmp_path, monkeypatch):
    """Runs in a folder of its own, and keeps the program's signal handler to itself."""
    monkeypatch.chdir(tmp_path)
    handler = signal.getsignal(signal.SIGTERM)
    yield
    signal.signal(signal.SIGTERM, handler)


@pytest.fixture
def evaluate(capsys):
    """Runs the command and returns what it prints; it must succeed."""

    def run(*words):
        status = _command.main(list(words))
        out, err = capsys.readouterr()
        assert (status, err) == (0, "")
        return out

    return run


@pytest.fixture
def refusal(capsys):
    """Runs the command, which must fail, and returns its line on standard error."""

    def run(*words):
        status = _command.main(list(words))
        out, err = capsys.readouterr()
        assert (status, out) == (1, "")
        assert err.startswith("vostrel-evaluate: ") and err.endswith("\n") and err.count("\n") == 1
        assert "Traceback" not in err and len(err) < 800
        return err[len("vostrel-evaluate: ") : -1]

    return run


@pytest.fixture
def columns():
    """Columns of a small survey, with numbers that only 17 digits distinguish."""
    rng = np.random.default_rng(1)
    zspec = rng.gamma(3, 0.3, 3000)
    return {
        "zspec": zspec,
        "zphot": zspec + 0.05 * (1 + zspec) * rng.standard_t(3, 3000),
        "forest": zspec + 0.04 * (1 + zspec) * rng.standard_t(3, 3000),
        "imag": rng.uniform(18, 25, 3000),
        "quality": rng.integers(0, 5, 3000),
        "field": rng.integers(1, 13, 3000),
    }
