"""Runs of both programs under the same conditions, each in a folder of its own.

VOSTREL names the program, VOSTREL_PLAIN the plain second program. VOSTREL_LONG_LINE sets how many
bytes the long lines have.
"""

import os
import pathlib
import random
import resource
import shutil
import subprocess
import tempfile

import pytest

TOO_LARGE = "column index exceeds maximum number of columns in the input file. Program aborted\n"
BAD_ORDER = (
    "first column index must be at least 1 and less than second column index. Program aborted\n"
)
FATAL = "FATAL ERROR OCCURRED. Statistics output not created! ***\n"
CREATED = "File created succesfully\n"
RUN = ["--stats", "table.csv", "report.txt", "0", "1", "2"]

PATIENCE = 300  # seconds; how long a run may take before the test gives up
NOBODY = 65534
ABORTED = -6  # SIGABRT, what an uncaught exception ends in

# One GiB in the campaign; less in each ordinary run of the tests, to save their time.
LONG_LINE = int(os.environ.get("VOSTREL_LONG_LINE") or 1 << 26)


def has_room(folder):
    """Whether the largest shapes of two programs fit in."""
    return os.access(folder, os.W_OK) and shutil.disk_usage(folder).free > 6 * LONG_LINE


SCRATCH = "/dev/shm" if has_room("/dev/shm") else None  # in memory where possible


class Program:
    """One of the two programs and the folder it runs in."""

    def __init__(self, path, folder):
        self.path = path
        self.folder = folder

    def __call__(self, *arguments, **options):
        # No core files.
        prepare = options.pop("preexec_fn", lambda: None)

        def before_the_program():
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            prepare()

        return subprocess.run(
            [self.path, *arguments],
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            stdout=options.pop("stdout", subprocess.PIPE),
            stderr=options.pop("stderr", subprocess.PIPE),
            timeout=PATIENCE,
            preexec_fn=before_the_program,
            **options,
        )

    def write(self, name, text):
        (self.folder / name).write_bytes(text if isinstance(text, bytes) else text.encode())

    def read(self, name):
        """The text of a file; None when there is none."""
        path = self.folder / name
        return path.read_bytes().decode(errors="surrogateescape") if path.is_file() else None

    def files(self):
        """Name and text of all files but the table."""
        return {
            path.name: path.read_bytes() if path.is_file() else "no file"
            for path in self.folder.iterdir()
            if path.name != "table.csv"
        }


class Both:
    """Both programs. What one leaves, the other must leave too."""

    def __init__(self, product, plain):
        self.product = product
        self.plain = plain

    def prepare(self, action):
        """Does the same in both folders: action(program)."""
        action(self.product)
        action(self.plain)

    def write(self, name, text):
        self.prepare(lambda program: program.write(name, text))

    def __call__(self, *arguments, **options):
        """The outcome of the product's run, having compared it."""
        runs = [program(*arguments, **options) for program in (self.product, self.plain)]
        one, other = runs
        assert one.returncode == other.returncode
        assert one.stdout == other.stdout
        # Which exception it was counts, the text that goes with it does not.
        assert (one.stderr or b"").split(b"\n")[0] == (other.stderr or b"").split(b"\n")[0]
        assert self.product.files() == self.plain.files()
        return one

    def rows(self, *arguments, **options):
        """internal.txt after a run that finished."""
        assert self(*(arguments or RUN), **options).returncode == 0
        return self.product.read("internal.txt")


@pytest.fixture
def scratch():
    """An empty folder that any user may look into."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vostrel-shape-", dir=SCRATCH))
    folder.chmod(0o755)
    yield folder
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
    folder.chmod(0o777)
    return Program(str(path), folder)


@pytest.fixture
def vostrel(scratch):
    return program("VOSTREL", scratch, "vostrel")


@pytest.fixture
def both(scratch, vostrel):
    return Both(vostrel, program("VOSTREL_PLAIN", scratch, "plain"))


@pytest.fixture
def without_rights():
    """Options for a run that file permissions hold for, which they don't for root."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


@pytest.fixture
def chance():
    """A source of random numbers. Its seed is printed; VOSTREL_TEST_SEED repeats a run."""
    seed = int(os.environ.get("VOSTREL_TEST_SEED") or random.SystemRandom().getrandbits(32))
    print(f"VOSTREL_TEST_SEED={seed}")
    return random.Random(seed)
