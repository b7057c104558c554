"""The program and the plain program, each run in its own folder."""

import os
import resource
import subprocess
import time

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
BANNER = (
    "\n"
    "+++ Program to generate regression statistics on machine learning experiments +++\n"
    f"by the vostrel developers, {os.environ.get('VOSTREL_BANNER')}\n"
    "\n"
)
TOO_LARGE = "column index exceeds maximum number of columns in the input file. Program aborted\n"
BAD_ORDER = (
    "first column index must be at least 1 and less than second column index. Program aborted\n"
)
FATAL = "FATAL ERROR OCCURRED. Statistics output not created! ***\n"
CREATED = "File created succesfully\n"

RUN = ["--stats", "table.csv", "report.txt", "0", "1", "2"]

MEBIBYTE = 1 << 20
PATIENCE = 60  # seconds before a test gives up
# How many bytes the long lines of the hostile tables have. The long samples use 1 GiB.
LONG_LINE = int(os.environ.get("VOSTREL_LONG_LINE") or 1 << 24)
ABORTED = -6  # SIGABRT, after an uncaught exception


class Program:
    """One of the two programs and the folder it runs in."""

    def __init__(self, path, folder):
        self.path = path
        self.folder = folder

    def __call__(self, *arguments, **options):
        """Runs the program to its end. Returns the output as bytes."""
        prepare = options.pop("preexec_fn", lambda: None)

        def before_the_program():
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))  # no core files
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

    def start(self, *arguments):
        """Starts a run with its standard output in the file `console`."""
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
        """The text of a file, or None if there is no such file."""
        path = self.folder / name
        return path.read_bytes().decode(errors="surrogateescape") if path.is_file() else None

    def names(self):
        return sorted(path.name for path in self.folder.iterdir())

    def files(self):
        """Name and text of all files except the table."""
        return {
            path.name: path.read_bytes() if path.is_file() else "no file"
            for path in self.folder.iterdir()
            if path.name != "table.csv"
        }

    def wait_for(self, name, text):
        """Waits until the file holds exactly this text."""
        wait_until(lambda: self.read(name) == text, lambda: f"{name} is {self.read(name)!r}")


class Both:
    """Both programs. They must leave the same."""

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
        """Runs both, compares everything they leave, and returns the run of the product."""
        runs = [program(*arguments, **options) for program in (self.product, self.plain)]
        one, other = runs
        assert one.returncode == other.returncode
        assert one.stdout == other.stdout
        # The first line names the type of an uncaught exception. The text of what() may differ.
        assert (one.stderr or b"").split(b"\n")[0] == (other.stderr or b"").split(b"\n")[0]
        assert self.product.files() == self.plain.files()
        return one

    def rows(self, *arguments, **options):
        """internal.txt after a run that must complete."""
        assert self(*(arguments or RUN), **options).returncode == 0
        return self.product.read("internal.txt")


def expect(run, console, status):
    """Expects this console output, nothing on standard error, and this exit status."""
    assert run.stdout.decode(errors="surrogateescape") == console
    assert run.stderr == b""
    assert run.returncode == status


def wait_until(condition, explanation=lambda: "no such moment"):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, explanation()
        time.sleep(0.001)
