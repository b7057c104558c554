"""The program vostrel-plot: its options, its files, its errors and its exit statuses."""

import io
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import time

import numpy as np
import pytest
import vostrel
from conftest import FOUR, REPORT, by_gid, catalogue, run, write
from vostrel.plot import _command, _reading, _format
from vostrel.plot._format import fonts_for

VOSTREL = os.environ.get("VOSTREL")


def test_no_such_file(failure):
    assert failure() == ("vostrel-plot: cannot read 'internal.txt': "
                         "No such file or directory\n")
    assert "cannot read '.'" in failure(".")
    write(FOUR)
    assert "cannot read 'none'" in failure("--report", "none")


def test_error_names_the_bad_line(failure):
    write(FOUR + "4 1\n")
    assert failure() == ("vostrel-plot: 'internal.txt', line 5: not three columns "
                         "of numbers (ID zspec zphot)\n")


@pytest.mark.parametrize("text", ["", "\n", "\n0 1 2\n"])
def test_no_objects(text, failure):
    write(text)
    assert failure() == "vostrel-plot: 'internal.txt' holds no objects\n"


def test_no_finite_objects(failure):
    write("0 nan 1\n1 -1 2\n")
    assert "no objects with finite values" in failure()


@pytest.mark.parametrize("name", ["a.jpg", "a", "png", ".png", "a.png.", ""])
def test_unknown_ending(name, failure):
    write(FOUR)
    assert "must end in .png, .pdf or .svg" in failure("--output", name)


def test_target_is_checked_before_the_data_are_read(failure):
    assert "must end in .png, .pdf or .svg" in failure("--output", "a.jpg")
    assert "no such folder" in failure("--output", "none/a.png")


def test_folder_that_cannot_be_written(failure):
    write(FOUR)
    assert "no such folder" in failure("--output", "none/a.png")
    assert "no such folder" in failure("--output", "internal.txt/a.png")
    assert "cannot write" in failure("--output", "/proc/a.png")
    os.mkdir("a.png")
    assert "it is a folder" in failure("--output", "a.png")


def test_folder_without_permission(monkeypatch, capsys):
    write(FOUR)  # the superuser may write everywhere, hence the pretence
    monkeypatch.setattr(os, "access", lambda *_: False)
    assert _command.main([]) == 2
    assert "the folder is not writable" in capsys.readouterr().err


@pytest.mark.parametrize(
    "text",
    [FOUR, REPORT[:300], REPORT.replace("= 0.3\n", "= much\n")],
    ids=["file", "part", "text"],
)
def test_report_that_is_not_one(text, failure):
    write(FOUR)
    write(text, "report.txt")
    assert "'report.txt' is not a report: " in failure("--report", "report.txt")


@pytest.mark.parametrize(
    "old, new, message",
    [
        ("Data size  = 4", "Data size  = 5", "Data size = 5, but the file gives 4"),
        ("\nNMAD             = 0.44478", "\nNMAD             = 0.44479",
         "NMAD = 0.44479, but the file gives 0.44478"),
        ("norm >1sigma = 50%", "norm >1sigma = 49%",
         "outliers norm >1sigma = 49, but the file gives 50"),
        ("= 0.167705", "= nan", "sigma norm = nan, but the file gives 0.167705"),
    ],
    ids=["count", "nmad", "outliers", "nan"],
)
def test_report_of_another_run(old, new, message, failure):
    write(FOUR)
    assert old in REPORT
    write(REPORT.replace(old, new), "report.txt")
    assert failure("--report", "report.txt") == (
        "vostrel-plot: 'report.txt' is not the report of 'internal.txt': it has " + message + "\n"
    )


@pytest.mark.skipif(VOSTREL is None, reason="VOSTREL names no vostrel")
@pytest.mark.parametrize("kind", ["catalogue", "constant", "outliers", "NaN"])
def test_report_and_console_output_of_a_run_are_accepted(figure_of, kind):
    zspec, zphot = catalogue(501)
    if kind == "constant":
        zspec[:], zphot[:] = 0.5, 0.6
    if kind == "outliers":
        zphot[::20], zphot[7] = -99, 1234567
    if kind == "NaN":
        zphot[5:40:7], zspec[9], zspec[30] = np.nan, np.inf, -1
    with open("table.csv", "w", encoding="utf-8") as stream:
        stream.writelines(f"x,{s:.9f},{p:.9f}\n" for s, p in zip(zspec, zphot))
    with open("console.txt", "wb") as stream:
        argv = [VOSTREL, "--stats", "table.csv", "report.txt", "0", "2", "3"]
        subprocess.run(argv, check=True, stdout=stream, timeout=60)
    columns = _reading.read_internal("internal.txt")
    for report in "report.txt", "console.txt":
        options = _command.arguments(["--report", report])
        _command.check_report(options, _command.report_of(report), *columns)
    if kind == "catalogue":
        (note,) = by_gid(figure_of("--report", "console.txt"), "note")
        assert "$n$ = 501" in note.get_text()


def test_missing_module_names_interpreter_and_both_ways(tmp_path):
    write(FOUR)
    (tmp_path / "matplotlib.py").write_text(
        "raise ModuleNotFoundError('No module', name='matplotlib')\n"
    )
    environment = {**os.environ, "PYTHONPATH": f"{tmp_path}:{os.environ['PYTHONPATH']}"}
    done = run(env=environment)
    assert (done.returncode, done.stderr) == (
        2,
        f"vostrel-plot: {sys.executable} has no Python module matplotlib: install it by "
        f"'{sys.executable} -m pip install matplotlib', or for Debian's Python by "
        "'apt install python3-matplotlib'\n",
    )
    assert run("--help", env=environment).returncode == 0


@pytest.mark.parametrize("argv", [["--wrong"], ["a", "b"], ["--output"]])
def test_wrong_command_line(argv, failure):
    assert "see vostrel-plot --help" in failure(*argv)


@pytest.mark.parametrize("argv, message", [
    (["--dpi", "0"], "--dpi: must be a whole number from 50 to 1200, not '0'"),
    (["--dpi", "many"], "--dpi: must be a whole number from 50 to 1200, not 'many'"),
    (["--dpi", "5000"], "--dpi: must be a whole number from 50 to 1200, not '5000'"),
    (["--layout", "A4"], "--layout: invalid choice: 'A4' (choose from 'page', 'column')"),
    (["--compare", "a"], "--compare: must be NAME=INTERNAL, not 'a'"),
    (["--labels", "a"], "--labels: expected 2 arguments"),
])
def test_error_of_an_option_names_what_it_takes(argv, message, failure):
    assert f"argument {message} (see vostrel-plot --help)" in failure(*argv).replace(
        "from page, column", "from 'page', 'column'")  # as newer versions of Python write it


def test_table_instead_of_the_file_of_a_run(failure):
    write("ID,ZSPEC,ZPHOT\n1,0.5,0.6\n", "survey.csv")
    assert failure("survey.csv") == (
        "vostrel-plot: 'survey.csv', line 1: not three columns of numbers (ID zspec zphot); if it "
        "is a table, first run vostrel --stats on it, which leaves the file internal.txt\n")


def test_characters_that_the_font_lacks(monkeypatch, capsys):
    write(FOUR)
    assert fonts_for("plain") == ["sans-serif"]
    assert len(fonts_for("\N{ARC}")) == 2, "DejaVu Sans Mono has it"
    assert _command.main(["--dpi", "50", "--title", "\N{ARC}"]) == 0
    assert capsys.readouterr().err == ""
    monkeypatch.setattr(_format, "fonts_for", lambda _: ["sans-serif"])
    assert _command.main(["--dpi", "50", "--title", "a \N{ARC}"]) == 0
    assert capsys.readouterr().err == "vostrel-plot: no installed font has \N{ARC}\n"


def test_files_that_cannot_be_compared(failure):
    write(FOUR, "a")
    write(FOUR.replace("2 1 ", "2 1.5 "), "b")
    write(FOUR[:-8], "c")
    write("0 nan 1\n" * 4, "d")
    for argv, message in (
        (["x=a", "y=b"], "'b', line 3: the reference is 1.5, but 1 in 'a'"),
        (["x=a", "y=c"], "'c' holds 3 objects, but 'a' holds 4"),
        (["x=d"], "'d' holds no objects with finite values"),
        (["x=a", "x=a"], "same name"),
        (["x=a", "x =a"], "same name"),
        ([f"{i}=a" for i in range(9)], "1 to 8 estimators, not 9"),
        (["x=a", "--report", "r"], "can't be combined with INTERNAL or --report"),
    ):
        assert message in failure("--compare", *argv)


@pytest.mark.parametrize("ending", ["png", "pdf", "svg"])
def test_disk_that_fills_up_leaves_the_old_figure(ending, failure):
    write(FOUR)
    write("old", f"a.{ending}")

    keep = signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    soft, hard = resource.getrlimit(resource.RLIMIT_FSIZE)
    try:
        resource.setrlimit(resource.RLIMIT_FSIZE, (5000, hard))
        assert "cannot write" in failure("--output", f"a.{ending}", "--dpi", "100")
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, (soft, hard))
        signal.signal(signal.SIGXFSZ, keep)
    with open(f"a.{ending}") as stream:
        assert stream.read() == "old"


def test_interruption_leaves_nothing(monkeypatch):
    class Figure:
        def savefig(self, stream, **_):
            stream.write(b"half")
            assert len(os.listdir(".")) == 1
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        _command.save(Figure(), "a.png", 100)
    assert os.listdir(".") == []
    monkeypatch.setattr(_command, "plot", lambda *_: os.kill(os.getpid(), signal.SIGTERM)
                        or time.sleep(5))
    with pytest.raises(SystemExit) as stop:
        _command.main([])
    assert stop.value.code == 143


def test_not_enough_memory_is_an_error(monkeypatch, capsys):
    def fail(*_):
        raise MemoryError
    monkeypatch.setattr(_command, "plot", fail)
    assert _command.main([]) == 2
    assert capsys.readouterr().err == "vostrel-plot: not enough memory\n"


# ------------------------------------------------------------- the program

@pytest.mark.parametrize(
    "name, magic",
    [("a.PNG", b"\x89PNG"), ("b.pdf", b"%PDF"), ("c.svg", b"<?xml")],
)
def test_format_follows_the_ending(name, magic, capfd):
    write(FOUR)
    assert _command.main(["--output", name, "--dpi", "50"]) == 0
    assert capfd.readouterr() == ("", "")
    assert sorted(os.listdir(".")) == sorted([name, "internal.txt"])
    content = pathlib.Path(name).read_bytes()
    assert content.startswith(magic)
    assert _command.main(["--output", "again" + name, "--dpi", "50"]) == 0
    assert pathlib.Path("again" + name).read_bytes() == content, "equal data give an equal file"


def test_settings_of_the_user_do_not_matter():
    write(FOUR)
    assert _command.main(["--output", "own.svg"]) == 0
    write("figure.figsize: 20, 2\nfont.size: 40\naxes.facecolor: red\n", "matplotlibrc")
    environment = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
    environment["MPLBACKEND"] = "nonsense"
    done = run("--output", "styled.svg", env=environment)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert pathlib.Path("own.svg").read_bytes() == pathlib.Path("styled.svg").read_bytes()


def test_default_name_permissions_and_size():
    write(FOUR, "other file.txt")
    before = os.umask(0o027)
    try:
        assert _command.main(["other file.txt", "--dpi", "100"]) == 0
    finally:
        os.umask(before)
    assert os.stat("vostrel.png").st_mode & 0o777 == 0o640
    with open("vostrel.png", "rb") as stream:
        assert int.from_bytes(stream.read(20)[16:], "big") == 710


def test_link_is_written_through():
    write(FOUR)
    os.mkdir("real")
    os.symlink("real/a.png", "a.png")
    assert _command.main(["--output", "a.png", "--dpi", "50"]) == 0
    assert os.path.islink("a.png") and os.listdir("real") == ["a.png"]


def test_version_and_help(capsys):
    def printed_by(option):
        with pytest.raises(SystemExit) as stop:
            _command.main([option])
        assert stop.value.code == 0
        return capsys.readouterr().out

    assert printed_by("--version") == f"vostrel-plot {vostrel.__version__}\n"
    text = printed_by("--help")
    for word in ("INTERNAL", "internal.txt", "vostrel.png", "Exit status"):
        assert word in text
    # The completion of the shell offers what the help names.
    completion = pathlib.Path(__file__).parents[2] / "packaging" / "vostrel.bash"
    (offered,) = re.findall(r'_vostrel_plot\(\).*?options="([^"]+)"',
                            completion.read_text(encoding="utf-8"), re.DOTALL)
    assert set(offered.split()) == set(re.findall(r"--[a-z]+(?:-[a-z]+)?", text))


# ------------------------------------------------------------- the progress


class Terminal(io.StringIO):
    """A standard error that is a terminal."""

    def isatty(self):
        return True


def test_progress_is_shown_on_a_terminal_after_a_while():
    quick, slow, file = Terminal(), Terminal(), io.StringIO()
    _command.ProgressLine("vostrel-plot", quick, patience=60).show("reading")
    assert quick.getvalue() == ""
    _command.ProgressLine("vostrel-plot", file, patience=0).show("reading")
    assert file.getvalue() == ""
    progress = _command.ProgressLine("vostrel-plot", slow, patience=0)
    progress.show("reading")
    assert slow.getvalue().endswith("vostrel-plot: reading")
    progress.clear()
    assert slow.getvalue().endswith("\r\033[K")


@pytest.mark.parametrize("text, status, last", [
    (FOUR, 0, ""), (FOUR + "4 1", 2, "vostrel-plot: 'internal.txt', line 5: ")])
def test_terminal_is_left_clean(monkeypatch, text, status, last):
    write(text)
    terminal, patient = Terminal(), _command.ProgressLine
    monkeypatch.setattr(sys, "stderr", terminal)
    monkeypatch.setattr(_command, "ProgressLine", lambda name: patient(name, patience=0))
    monkeypatch.setattr(_reading, "BLOCK", 8)
    assert _command.main([]) == status
    *shown, end = terminal.getvalue().split("\r\033[K")
    assert any("reading" in text for text in shown)
    assert end.startswith(last) and bool(end) == bool(last)
