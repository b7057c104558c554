"""Tables of unexpected shapes. `both` compares each outcome with that of the plain program."""

import os
import resource
import signal

import pytest
from support.programs import (
    ABORTED,
    CREATED,
    FATAL,
    LONG_LINE,
    MEBIBYTE,
    PATIENCE,
    RUN,
    TOO_LARGE,
    wait_until,
)


def table_with_a_long_line(program, before, filling, behind):
    """`before`, then LONG_LINE bytes of filling, then `behind`."""
    with open(program.folder / "table.csv", "wb") as table:
        table.write(before)
        if filling == b"\0":  # as a hole
            table.seek(LONG_LINE, os.SEEK_CUR)
        else:
            for _ in range(LONG_LINE // MEBIBYTE):
                table.write(filling * MEBIBYTE)
        table.write(behind)


@pytest.mark.parametrize(
    "before, filling, behind, rows",
    [
        (b"1,2", b"\0", b"9,3\n4,5\n", "0 1 2\n1 4 5\n"),
        (b"1,2\n3,", b" ", b"4\n5,6\n", "0 1 2\n1 3 4\n2 5 6\n"),
        (b"1,0.1", b"0", b"9\n-0.", "0 1 0.1\n1 -0 -0\n"),
        (b"7,1", b"3", b"\n8,9", "0 7 inf\n1 8 9\n"),
        (b"7,8", b",", b"\n8,9", "0 7 8\n1 8 9\n"),
    ],
    ids=["of NULs", "of spaces", "of decimals", "of digits", "of commas"],
)
def test_a_very_long_line_is_a_line_like_any_other(both, before, filling, behind, rows):
    both.prepare(lambda program: table_with_a_long_line(program, before, filling, behind))
    if filling == b",":
        # The plain program would walk along its second line once for each comma.
        run = both.product(*RUN)
        commas = LONG_LINE // MEBIBYTE * MEBIBYTE + 1
        assert f"\ncol number {commas + 1}\n".encode() in run.stdout
        assert run.returncode == 0
        assert both.product.read("internal.txt") == rows
    else:
        assert both.rows() == rows


def test_a_long_header_is_shown_whole(both):
    both.prepare(lambda program: table_with_a_long_line(program, b"a,", b"b", b"\n1,2\n"))
    run = both("--stats", "table.csv", "report.txt", "1", "1", "2")
    header = b"a," + b"b" * (LONG_LINE // MEBIBYTE * MEBIBYTE)
    assert b"\nheader = " + header + b"\ncol number 2\n" in run.stdout
    assert both.product.read("internal.txt") == "0 0 0\n1 1 2\n"


def test_short_rows_under_a_million_columns_take_linear_time(vostrel):
    # Walking along each row a million times would take more than a quarter of an hour.
    vostrel.write("table.csv", "x," * 999999 + "x\n" + "5,6\n" * 100000)
    run = vostrel(
        "--stats", "table.csv", "report.txt", "0", "1", "1000000",
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (60, 60)),
    )
    assert run.returncode == 0
    assert b"\ncol number 1000000\n" in run.stdout
    rows = vostrel.read("internal.txt").splitlines()
    assert rows[0] == "0 0 0"
    assert rows[1:] == [f"{i} 5 6" for i in range(1, 100001)]


def test_short_rows_under_a_million_columns_wrap_around(both):
    both.write("table.csv", "x," * 999999 + "x\n5,6\n1,2,3\n4\n")
    run = ["--stats", "table.csv", "report.txt", "0", "999998", "999999"]
    # 999998 is even and leaves 2 when divided by 3.
    assert both.rows(*run) == "0 0 0\n1 6 5\n2 2 3\n3 4 4\n"


@pytest.mark.parametrize(
    "text",
    ["," * MEBIBYTE, ",,\n" * 1000, ",", ",\n"],
    ids=["one long line", "short lines", "one comma", "one comma and a newline"],
)
def test_a_table_of_commas_ends_the_run_at_its_first_line(both, text):
    both.write("table.csv", text)
    assert both(*RUN).returncode == ABORTED
    assert both.product.files() == {"internal.txt": b""}


def test_lines_before_a_line_of_commas_are_kept(both):
    both.write("table.csv", "1,2\n" * 50000 + ",,,\n" + "3,4\n" * 50000)
    run = both.product(*RUN)
    assert run.returncode == ABORTED
    assert both.product.read("internal.txt") == "".join(f"{i} 1 2\n" for i in range(50000))


def test_a_file_without_a_newline_is_one_line(both):
    both.write("table.csv", "0.5,0.25")
    assert both.rows() == "0 0.5 0.25\n"


@pytest.mark.parametrize("text", ["", "\n", "\n1,2\n", "1\n"], ids=repr)
def test_a_table_without_a_first_line_of_two_columns_is_refused(both, text):
    both.write("table.csv", text)
    run = both(*RUN)
    assert run.returncode == 255
    assert both.product.files() == {"error.log": (TOO_LARGE + FATAL).encode()}


def test_nul_bytes_end_numbers_and_nothing_else(both):
    both.write("table.csv", b"1\x002,3\x00\x004\n\x005,6\n7\x00,\x00\n\x00\n8,9\n")
    assert both.rows() == "0 1 3\n1 0 6\n2 7 0\n3 0 0\n4 8 9\n"


def test_carriage_returns_alone_make_no_lines(both):
    both.write("table.csv", "1,2\r3,4\r5,6\r")
    assert both.rows() == "0 1 2\n"
    assert b"\ncol number 4\n" in both(*RUN).stdout


def test_utf_16_is_read_as_bytes(both):
    both.write("table.csv", "1,2\n3,4\n".encode("utf-16"))
    assert both.rows() == "0 0 0\n1 0 0\n2 0 0\n"


MILLION = 1000000


@pytest.mark.parametrize(
    "number, value",
    [
        ("0." + "3" * MILLION, "0.333333"),
        ("1" * MILLION, "inf"),
        ("-" + "9" * MILLION, "-inf"),
        ("0" * MILLION + "7.5", "7.5"),
        ("0." + "0" * MILLION + "1", "0"),
        ("0." + "0" * MILLION + f"1e{MILLION}", "0.1"),
        ("1" + "0" * MILLION + f"e-{MILLION}", "1"),
        ("1e" + "0" * MILLION + "5", "100000"),
        ("1e" + "9" * MILLION, "inf"),
        ("1e-" + "9" * MILLION, "0"),
        ("0x" + "0" * MILLION + "ff", "255"),
        ("1000015." + "0" * MILLION, "1.00002e+06"),
        ("0.5" + "0" * MILLION + "1", "0.5"),
        ("nan(" + "1" * MILLION + ")", "nan"),
        (" " * MILLION + "2.5", "2.5"),
        ("x" * MILLION, "0"),
    ],
    ids=range(16),
)
def test_a_number_of_a_million_digits_is_read_to_the_last_one(both, number, value):
    both.write("table.csv", f"{number},{number}\n1,{number}\n")
    assert both.rows() == f"0 {value} {value}\n1 1 {value}\n"


def test_a_hundred_thousand_nans_give_nan(vostrel):
    vostrel.write("table.csv", "nan,nan\n" * 100000)
    run = vostrel(*RUN)
    assert run.returncode == 0
    assert b"\nData size  = 100000\n" in run.stdout
    for label in (b"bias  ", b"sigma  ", b"RMS  ", b"MAD  ", b"NMAD  ", b"MAD(Delta)  "):
        line = next(line for line in run.stdout.splitlines() if line.startswith(label))
        assert line.endswith(b"= nan")
    assert b"\noutliers >0.15   = 0%\n" in run.stdout
    assert vostrel.read("internal.txt") == "".join(f"{i} nan nan\n" for i in range(100000))


def test_nans_divide_the_values_that_are_sorted(both):
    both.write("table.csv", "nan,1\n0.5,0.1\n0.2,0.9\n-nan,0\ninf,1\n1,inf\n-1,-1\n3,1\n" * 300)
    assert both(*RUN).returncode == 0


@pytest.mark.parametrize("flag", ["0", "1"])
@pytest.mark.parametrize("size", [100, 5000, 200000])
def test_random_bytes_have_the_same_outcome_in_both_programs(both, chance, flag, size):
    for _ in range(20 if size < MEBIBYTE // 8 else 4):
        text = bytearray(chance.randbytes(size))
        for _ in range(size // 20):  # something to be found in them
            text[chance.randrange(size)] = chance.choice(b",,,,\n0123456789.-")
        both.write("table.csv", bytes(text))
        both("--stats", "table.csv", "report.txt", flag, "1", "2")


def test_the_null_device_is_an_empty_table(both):
    run = both("--stats", "/dev/null", "report.txt", "0", "1", "2")
    assert b"\ncol number 1\n" in run.stdout
    assert run.returncode == 255
    assert both.product.read("error.log") == TOO_LARGE + FATAL


def test_an_endless_device_is_read_until_an_interrupt(vostrel):
    run = vostrel.start("--stats", "/dev/zero", "report.txt", "0", "1", "2")
    # As soon as the system shows the handler, it is in use.
    wait_until(lambda: handles_interrupts(run.pid))
    run.send_signal(signal.SIGINT)
    assert run.wait(PATIENCE) == 0
    assert run.stderr.read() == b""
    run.stderr.close()
    assert vostrel.read("console").endswith("\n\nSIGINT catched!\n")


def handles_interrupts(process):
    with open(f"/proc/{process}/status") as status:
        caught = next(line for line in status if line.startswith("SigCgt:"))
    return int(caught.split()[1], 16) & 1 << (signal.SIGINT - 1) != 0


def test_a_table_removed_between_the_two_passes_gives_a_run_without_rows(both):
    def run(program):
        os.mkfifo(program.folder / "table.csv")
        child = os.fork()
        if child == 0:
            # The first pass waits for what this process writes.
            pipe = os.open(program.folder / "table.csv", os.O_WRONLY)
            (program.folder / "table.csv").unlink()
            os.write(pipe, b"1,2\n3,4\n")
            os._exit(0)
        run = program(*RUN)
        os.waitpid(child, 0)
        return run

    one, other = run(both.product), run(both.plain)
    assert (one.returncode, one.stdout) == (other.returncode, other.stdout)
    assert both.product.files() == both.plain.files()
    assert one.returncode == 0
    assert b"\ncol number 2\n" in one.stdout
    assert b"\nData size  = 0\n" in one.stdout
    assert both.product.read("internal.txt") == ""
    assert both.product.read("error.log") == CREATED


def test_a_table_that_is_the_log_is_read_before_the_log_grows(both):
    both.write("error.log", "1,2\n3,4\n")
    assert both.rows("--stats", "error.log", "report.txt", "0", "1", "2") == "0 1 2\n1 3 4\n"
    assert both.product.read("error.log") == "1,2\n3,4\n" + CREATED


def test_a_table_that_is_the_report_is_replaced_at_the_end(both):
    both.write("table.csv", "1,2\n3,4\n")
    assert both.rows("--stats", "table.csv", "table.csv", "0", "1", "2") == "0 1 2\n1 3 4\n"
    assert both.product.read("table.csv").startswith("Data size  = 2\n")
