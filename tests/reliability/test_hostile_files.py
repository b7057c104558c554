"""Unexpected kinds of files, full disks, closed standard output, odd arguments.

`both` compares each outcome with that of the plain program.
"""

import os
import resource
import shutil
import signal
import subprocess

import pytest
from support.programs import ABORTED, BAD_ORDER, CREATED, FATAL, RUN, TOO_LARGE

TABLE = "0.1,0.12\n0.2,0.19\n0.3,0.33\n0.4,0.4\n"
ROWS = "0 0.1 0.12\n1 0.2 0.19\n2 0.3 0.33\n3 0.4 0.4\n"


@pytest.fixture
def table(both):
    both.write("table.csv", TABLE)
    return both


def link(name, target):
    return lambda program: (program.folder / name).symlink_to(target)


def report_of(program):
    text = program.read("report.txt")
    assert len(text.splitlines()) == 27
    return text


# ---- the intermediate file


def test_an_intermediate_file_that_is_a_dangling_link_is_created_at_its_target(table):
    table.prepare(link("internal.txt", "elsewhere.txt"))
    assert table.rows() == ROWS
    assert table.product.read("elsewhere.txt") == ROWS


def test_an_intermediate_file_that_links_to_itself_gives_a_run_without_data(table):
    table.prepare(link("internal.txt", "internal.txt"))
    run = table(*RUN)
    assert run.returncode == 0
    assert b"*** file internal.txt not found! ***\nData size  = 0\n" in run.stdout


@pytest.mark.parametrize("make_link", [os.symlink, os.link])
def test_an_intermediate_file_that_is_the_table_empties_it(table, make_link):
    table.prepare(
        lambda program: make_link(program.folder / "table.csv", program.folder / "internal.txt")
    )
    run = table(*RUN)
    assert run.returncode == 0
    assert b"\nData size  = 0\n" in run.stdout
    assert table.product.read("table.csv") == ""


def test_an_intermediate_file_that_is_the_log_gets_the_log_line_as_a_row(table):
    table.write("error.log", "from before\n")
    table.prepare(link("internal.txt", "error.log"))
    run = table(*RUN)
    assert run.returncode == 0
    assert b"\nData size  = 5\n" in run.stdout
    assert table.product.read("error.log") == ROWS + CREATED


def test_an_intermediate_file_that_is_the_report_is_read_before_it_is_replaced(table):
    assert table("--stats", "table.csv", "internal.txt", "0", "1", "2").returncode == 0
    assert table.product.read("internal.txt").startswith("Data size  = 4\n")


def test_an_intermediate_file_that_is_the_null_device_gives_a_run_without_data(table):
    table.prepare(link("internal.txt", "/dev/null"))
    run = table(*RUN)
    assert run.returncode == 0
    assert b"\nData size  = 0\n" in run.stdout


def test_a_longer_old_intermediate_file_is_replaced(table):
    table.write("internal.txt", "9 9 9\n" * 1000)
    assert table.rows() == ROWS


# ---- full disks


def file_limit(size):
    """Limits files to `size` bytes. A longer write fails, as on a full disk."""

    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

    return limit


def test_a_full_disk_gives_a_run_without_rows(table):
    run = table(*RUN, preexec_fn=file_limit(0))
    assert run.returncode == 0
    assert b"\nData size  = 0\n" in run.stdout
    assert table.product.files() == {"internal.txt": b"", "report.txt": b"", "error.log": b""}


@pytest.mark.parametrize("size", [*range(0, 48), 100, 500, 700, 1023, 1024, 1025])
def test_a_disk_that_fills_up_cuts_each_file_at_the_same_byte_in_both_programs(both, size):
    both.write("table.csv", TABLE * 20)
    both(*RUN, preexec_fn=file_limit(size))
    rows = "".join(
        f"{i} {row.split(' ', 1)[1]}\n" for i, row in enumerate(ROWS.splitlines() * 20)
    )
    assert both.product.read("internal.txt") == rows[:size]


@pytest.mark.parametrize("size", [65536, 131071, 131072, 131073, 200000])
def test_a_disk_that_fills_up_keeps_the_rows_before(vostrel, size):
    vostrel.write("table.csv", TABLE * 5000)
    vostrel(*RUN, preexec_fn=file_limit(size))
    rows = "".join(
        f"{i} {row.split(' ', 1)[1]}\n" for i, row in enumerate(ROWS.splitlines() * 5000)
    )
    assert vostrel.read("internal.txt") == rows[:size]


@pytest.fixture
def small_disks(both):
    """Both folders become disks of 64 KiB."""
    mounted = []
    for program in (both.product, both.plain):
        mount = subprocess.run(
            ["mount", "-t", "tmpfs", "-o", "size=64k,mode=777", "tmpfs", str(program.folder)],
            capture_output=True,
        )
        if mount.returncode != 0:
            for folder in mounted:
                subprocess.run(["umount", folder], check=True)
            pytest.skip("no right to mount a small disk")
        mounted.append(str(program.folder))
    yield both
    for folder in mounted:
        subprocess.run(["umount", folder], check=True)


@pytest.mark.parametrize("left", [0, 4096, 8192, 12288, 16384])
def test_a_disk_that_is_full_has_the_same_outcome_in_both_programs(small_disks, left):
    small_disks.write("table.csv", TABLE * 20)
    small_disks.write("ballast", bytes(65536 - 4096 - left))
    run = small_disks(*RUN)
    assert run.returncode in (0, ABORTED)


@pytest.mark.parametrize("target", ["/dev/full", "no such folder/log", "."])
def test_a_log_that_cannot_be_written_changes_nothing_else(table, target):
    table.prepare(link("error.log", target))
    assert table.rows() == ROWS
    report_of(table.product)


@pytest.mark.parametrize("target", ["/dev/full", "no such folder/log", "."])
def test_a_failure_that_cannot_be_logged_is_a_failure(table, target):
    table.prepare(link("error.log", target))
    run = table("--stats", "table.csv", "report.txt", "0", "1", "3")
    assert run.returncode == 255
    assert run.stdout.decode().endswith(TOO_LARGE)


# ---- standard output


def test_a_closed_standard_output_changes_no_file(table):
    table(*RUN)
    expected = table.product.files()
    table.prepare(lambda program: [(program.folder / name).unlink() for name in expected])
    run = table(*RUN, preexec_fn=lambda: os.close(1))
    assert run.returncode == 0
    assert table.product.files() == expected


def test_a_full_standard_output_changes_no_file(table):
    table(*RUN)
    expected = table.product.files()
    table.prepare(lambda program: [(program.folder / name).unlink() for name in expected])
    with open("/dev/full", "wb") as full:
        run = table(*RUN, stdout=full)
    assert run.returncode == 0
    assert run.stderr == b""
    assert table.product.files() == expected


def to_a_pipe_without_a_reader():
    reader, writer = os.pipe()
    os.close(reader)
    os.dup2(writer, 1)
    os.close(writer)


def test_a_closed_pipe_as_standard_output_ends_the_run_by_sigpipe(table):
    run = table(*RUN, preexec_fn=to_a_pipe_without_a_reader)
    assert run.returncode == -signal.SIGPIPE
    assert table.product.files() == {}


def test_a_closed_pipe_changes_no_file_when_sigpipe_is_ignored(table):
    table(*RUN)
    expected = table.product.files()
    table.prepare(lambda program: [(program.folder / name).unlink() for name in expected])

    def prepare():
        to_a_pipe_without_a_reader()
        signal.signal(signal.SIGPIPE, signal.SIG_IGN)

    run = table(*RUN, preexec_fn=prepare)
    assert run.returncode == 0
    assert table.product.files() == expected


def test_closed_standard_input_and_error_change_nothing(table):
    def prepare():
        os.close(0)
        os.close(2)

    assert table.rows(*RUN, preexec_fn=prepare) == ROWS


# ---- arguments


@pytest.mark.parametrize(
    "column", ["2147483647", "+2147483647", "2147483646", "1000000000", "3", "0000000003"]
)
@pytest.mark.parametrize("place", [4, 5])
def test_column_indices_beyond_the_columns_are_refused_up_to_the_largest_int(table, column, place):
    arguments = list(RUN)
    arguments[place] = column
    run = table(*arguments)
    assert run.returncode == 255
    assert run.stdout.decode().endswith("col number 2\n" + TOO_LARGE)
    assert table.product.files() == {"error.log": (TOO_LARGE + FATAL).encode()}


@pytest.mark.parametrize("column", ["-2147483648", "-2147483647", "-1", "0", "-0", "x", ""])
def test_column_indices_below_one_are_refused_down_to_the_smallest_int(table, column):
    for arguments in (["0", column, "2"], ["0", "1", column]):
        run = table("--stats", "table.csv", "report.txt", *arguments)
        assert run.returncode == 255
        assert run.stdout.decode().endswith("col number 2\n" + BAD_ORDER)


@pytest.mark.parametrize(
    "column",
    ["2147483648", "4294967297", "4294967298", "99999999999", "9223372036854775807",
     "9223372036854775808", "18446744073709551617", "9" * 400, "-2147483649", "-4294967295",
     "-99999999999", "-9223372036854775809", "-" + "9" * 400],
)
@pytest.mark.parametrize("place", [3, 4, 5])
def test_indices_beyond_the_int_range_match_the_plain_program(table, column, place):
    arguments = list(RUN)
    arguments[place] = column
    assert table(*arguments).returncode in (0, 255)


def test_an_empty_table_name_is_not_found(table):
    run = table("--stats", "", "report.txt", "0", "1", "2")
    assert run.returncode == 255
    assert run.stdout.endswith(b"\n*** file  not found! ***\n")
    assert table.product.read("error.log") == "*** file  not found! ***\n" + FATAL


@pytest.mark.parametrize("size", [256, 4096, 100000])
def test_a_table_name_that_is_too_long_is_not_found(table, size):
    name = "n" * size
    run = table("--stats", name, "report.txt", "0", "1", "2")
    assert run.returncode == 255
    message = f"*** file {name} not found! ***\n"
    assert run.stdout.decode().endswith(message)
    assert table.product.read("error.log") == message + FATAL


@pytest.mark.parametrize("size", [256, 4096, 100000])
def test_a_report_name_that_is_too_long_looks_like_success(table, size):
    name = "n" * size
    run = table("--stats", "table.csv", name, "0", "1", "2")
    assert run.returncode == 0
    assert f"\nStatistics stored in the file {name}\n".encode() in run.stdout
    assert sorted(table.product.files()) == ["error.log", "internal.txt"]


@pytest.mark.parametrize(
    "name",
    [b"n" * 255, b"\xff\xfe\x80", b"a\nb", b" ", b"-", b"--stats", b"%s%n", b"\x1b[31m", b"*"],
)
def test_names_are_bytes_and_shown_as_they_are(table, name):
    name = os.fsdecode(name)
    table.prepare(
        lambda program: shutil.copy(program.folder / "table.csv", program.folder / name)
    )
    report = name[:250] + "_r"
    run = table("--stats", name, report, "0", "1", "2")
    assert run.returncode == 0
    assert b"\nLoad data from file: " + os.fsencode(name) + b"\n" in run.stdout
    assert b"\nStatistics stored in the file " + os.fsencode(report) + b"\n" in run.stdout
    assert table.product.read("internal.txt") == ROWS
    assert table.product.read(report).startswith("Data size  = 4\n")
