"""The bash completion, in an interactive bash."""

import os
import pty
import select
import subprocess
import time

import pytest
from conftest import BUILD, CMAKE, SOURCE, run

PATIENCE = 20  # seconds


class Terminal:
    """An interactive bash with the completion loaded."""

    def __init__(self, folder, load):
        (folder / ".inputrc").write_text("set bell-style none\nset enable-bracketed-paste off\n")
        # Functions replace the programs and show their arguments.
        (folder / ".bashrc").write_text(
            "PS1=\nshow() { printf 'words:'; printf ' <%s>' \"$@\"; echo; }\n"
            "vostrel() { show \"$@\" >/dev/tty; }\n"
            "vostrel-plot() { show \"$@\" >/dev/tty; }\n"
            "vostrel-evaluate() { show \"$@\" >/dev/tty; }\n"
            f"{load}\necho re''ady\n"
        )
        self.text = ""
        self.master, slave = pty.openpty()
        self.bash = subprocess.Popen(
            ["bash", "--noprofile", "--rcfile", ".bashrc", "-i"],
            cwd=folder,
            env={**os.environ, "TERM": "dumb", "INPUTRC": ".inputrc", "HOME": str(folder)},
            stdin=slave,
            stdout=slave,
            stderr=slave,
            start_new_session=True,
        )
        os.close(slave)
        self.read_until("ready")

    def type(self, text):
        os.write(self.master, text.encode())

    def read_until(self, end):
        """Takes and returns the text before `end`. Takes `end` too."""
        deadline = time.monotonic() + PATIENCE
        while end not in self.text:
            ready, _, _ = select.select([self.master], [], [], max(0, deadline - time.monotonic()))
            assert ready, f"no {end!r} in {self.text!r}"
            self.text += os.read(self.master, 4096).decode()
        before, _, self.text = self.text.partition(end)
        return before

    def words(self, line):
        """The arguments of the command after `line`, with its tabs, is typed."""
        self.type(line + "\n")
        self.read_until("words:")
        return self.read_until("\n").strip()

    def listed(self, line):
        """The lines shown when two tabs are typed after `line`, which is then deleted."""
        self.type(line + "\t\t")
        time.sleep(0.3)
        self.type("\x15echo li''sted\n")
        return self.read_until("listed").replace("\r", "").split("\n")

    def close(self):
        os.close(self.master)
        self.bash.wait(PATIENCE)


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "galaxies one.csv").write_text("")
    (tmp_path / "report.txt").write_text("")
    return tmp_path


@pytest.fixture
def terminal(folder):
    terminal = Terminal(folder, f"source '{SOURCE}/packaging/vostrel.bash'")
    yield terminal
    terminal.close()


def test_option_then_files(terminal):
    assert terminal.words("vostrel \t") == "<--stats>"
    assert terminal.words("vostrel --s\tga\trep\t0 2 3") == (
        "<--stats> <galaxies one.csv> <report.txt> <0> <2> <3>"
    )
    assert terminal.words("vostrel x\t") == "<x>"


def test_files_are_all_offered(terminal):
    for line in ["vostrel --stats ", "vostrel --stats x "]:
        shown = " ".join(terminal.listed(line))
        assert "galaxies one.csv" in shown and "report.txt" in shown


def test_header_flag_then_nothing(terminal):
    assert any(line.split() == ["0", "1"] for line in terminal.listed("vostrel --stats a b "))
    for given in ["0 ", "0 1 ", "0 1 2 "]:
        shown = " ".join(terminal.listed("vostrel --stats a b " + given))
        assert "galaxies" not in shown and "report" not in shown
    assert terminal.words("vostrel --stats a b 0 rep\t rep\t") == (
        "<--stats> <a> <b> <0> <rep> <rep>"
    )


def test_names_with_a_colon_or_an_equals_sign(terminal, folder):
    (folder / "sky:north.csv").write_text("")
    (folder / "z=2.csv").write_text("")
    expected = "<--stats> <sky:north.csv> <report.txt> <0>"
    # As readline completes the name, as it is typed, and in quotes.
    for table in ["sk\t", "sky:n\t", "sky:\t", "sky:north.csv ", "'sky:n\t", '"sky:n\t']:
        assert terminal.words(f"vostrel --stats {table}rep\t0") == expected, table
    for table in ["z\t", "z=\t", "z=2.csv "]:
        assert terminal.words(f"vostrel --stats {table}rep\t") == (
            "<--stats> <z=2.csv> <report.txt>"
        )


def test_redirections(terminal, folder):
    """They complete to files anywhere in the line, and don't count as arguments."""
    for line in [
        "vostrel --stats ga\trep\t0 2 3 > rep\t",
        "vostrel --stats ga\trep\t0 2 3 >rep\t",
        "vostrel --stats ga\trep\t0 2 3 2>> rep\t",
        "vostrel >/dev/null --s\tga\trep\t0 2 3",
        "vostrel 2> /dev/null --s\tga\trep\t0 2 3 </dev/null",
    ]:
        assert terminal.words(line) == (
            "<--stats> <galaxies one.csv> <report.txt> <0> <2> <3>"
        ), line
    assert [path.name for path in folder.glob("rep*")] == ["report.txt"]


def test_options_of_vostrel_plot(terminal):
    assert terminal.words("vostrel-plot --rep\trep\t--ou\tf.png ga\t") == (
        "<--report> <report.txt> <--output> <f.png> <galaxies one.csv>"
    )
    assert terminal.words("vostrel-plot --report=rep\t") == "<--report=report.txt>"
    for value in ["--title ", "--dpi "]:
        assert "report.txt" not in " ".join(terminal.listed("vostrel-plot " + value))
    assert "--report" in " ".join(terminal.listed("vostrel-plot --"))
    assert terminal.words("vostrel-plot --layout c\t") == "<--layout> <column>"
    assert terminal.words("vostrel-plot --layout=c\t") == "<--layout=column>"


def test_found_where_it_is_installed(folder):
    """bash-completion loads it from the folder where it is installed."""
    loader = "/usr/share/bash-completion/bash_completion"
    if not os.path.exists(loader):
        message = f"{loader} is missing: install the Debian package bash-completion"
        pytest.fail(message, pytrace=False)
    prefix = folder / "prefix"
    run(CMAKE, "--install", BUILD, "--prefix", prefix)
    terminal = Terminal(folder, f"export XDG_DATA_DIRS='{prefix}/share'; source {loader}")
    assert terminal.words("vostrel --s\tga\trep\t1 2 3") == (
        "<--stats> <galaxies one.csv> <report.txt> <1> <2> <3>"
    )
    terminal.close()


def test_options_of_vostrel_evaluate(terminal):
    assert terminal.words("vostrel-evaluate ga\tzspec zphot --err\tb\t--outp\trep\t") == (
        "<galaxies one.csv> <zspec> <zphot> <--errors> <bootstrap> <--output> <report.txt>"
    )
    assert terminal.words("vostrel-evaluate ga\tz p --perc\t16,84 --outl\t0.2") == (
        "<galaxies one.csv> <z> <p> <--percentiles> <16,84> <--outliers> <0.2>"
    )
    assert terminal.words("vostrel-evaluate --format=l\t") == "<--format=latex>"
    assert "report.txt" not in " ".join(terminal.listed("vostrel-evaluate ga --by "))
    assert "report.txt" not in " ".join(terminal.listed("vostrel-evaluate ga --percentiles "))
