"""Runs of the built program in scratch folders.

VOSTREL names the program, VOSTREL_PLAIN the plain second program. Tests take what they need as
fixtures: `vostrel` is a Program in an empty folder of its own, `plain` the other one in another.
"""

import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import pytest

BANNER = (
    "\n"
    "+++ Program to generate regression statistics on machine learning experiments +++\n"
    f"by the vostrel developers, {os.environ['VOSTREL_BANNER']}\n"
    "\n"
)
USAGE = (
    "\n"
    "specify the following line command at prompt:\n"
    "vostrel --stats <input file name> <output file name> <header flag 0/1> <col1> <col2>\n"
    "where\n"
    "<input file name> is a three column ASCII file (space separated)\n"
    "<output file name> is a user specified statistics output file name\n"
    "<header flag 0/1> is the header presence (0 not present, 1 present) in the input file\n"
    "<col1> is the index of the first column to be used to calculate statistics\n"
    "<col2> is the index of the second column to be used to calculate statistics\n"
)
TOO_LARGE = "column index exceeds maximum number of columns in the input file. Program aborted\n"
BAD_ORDER = (
    "first column index must be at least 1 and less than second column index. Program aborted\n"
)
FATAL = "FATAL ERROR OCCURRED. Statistics output not created! ***\n"
CREATED = "File created succesfully\n"

PATIENCE = 60  # seconds; how long a run may take before the test gives up
NOBODY = 65534


class Program:
    """One of the two programs and the folder it runs in."""

    def __init__(self, path, folder):
        self.path = path
        self.folder = folder

    def __call__(self, *arguments, **options):
        """Runs to the end. Output comes back as bytes."""
        return subprocess.run(
            [self.path, *arguments],
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            stdout=options.pop("stdout", subprocess.PIPE),
            stderr=subprocess.PIPE,
            timeout=PATIENCE,
            **options,
        )

    def start(self, *arguments):
        """Starts a run whose standard output goes to the file `console`."""
        with open(self.folder / "console", "wb") as console:
            return subprocess.Popen(
                [self.path, *arguments],
                cwd=self.folder,
                stdin=subprocess.DEVNULL,
                stdout=console,
                stderr=subprocess.PIPE,
            )

    def write(self, name, text):
        (self.folder / name).write_bytes(text if isinstance(text, bytes) else text.encode())

    def read(self, name):
        """The text of a file; None when there is none."""
        path = self.folder / name
        return path.read_bytes().decode(errors="surrogateescape") if path.exists() else None

    def files(self):
        return sorted(path.name for path in self.folder.iterdir())

    def wait_for(self, name, text):
        """Waits until the file holds exactly this text."""
        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            if self.read(name) == text:
                return
            time.sleep(0.002)
        raise AssertionError(f"{name} never came to be {text!r}: it is {self.read(name)!r}")


def expect(run, console, status):
    """Standard output, nothing on standard error, exit status."""
    assert run.stdout.decode(errors="surrogateescape") == console
    assert run.stderr == b""
    assert run.returncode == status


@pytest.fixture
def scratch():
    """An empty folder that any user may look into."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vostrel-test-"))
    folder.chmod(0o755)
    yield folder
    for path in folder.rglob("*"):
        if path.is_dir() and not path.is_symlink():
            path.chmod(0o755)
    shutil.rmtree(folder)


def program(variable, scratch, name):
    if variable not in os.environ:
        pytest.fail(f"{variable} must name the program to test")
    # A copy, so that a user without any rights can run it, wherever it was built.
    path = scratch / f"{name}-program"
    shutil.copy(os.environ[variable], path)
    path.chmod(0o755)
    folder = scratch / name
    folder.mkdir()
    return Program(str(path), folder)


@pytest.fixture
def vostrel(scratch):
    return program("VOSTREL", scratch, "vostrel")


@pytest.fixture
def plain(scratch):
    return program("VOSTREL_PLAIN", scratch, "plain")


@pytest.fixture
def without_rights():
    """Options for a run that file permissions hold for, which they don't for root."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}
