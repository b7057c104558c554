"""The command line: arguments, usage, messages and exit statuses."""

import pytest
from support.programs import BAD_ORDER, BANNER, CREATED, FATAL, TOO_LARGE, USAGE, expect


def test_without_arguments_the_usage_is_printed(vostrel):
    expect(vostrel(), BANNER + USAGE, 255)
    assert vostrel.names() == []


@pytest.mark.parametrize("first", ["--stats", "--help", ""])
@pytest.mark.parametrize("more", [1, 2, 20])
def test_more_than_six_arguments_are_too_many(vostrel, first, more):
    vostrel.write("table.csv", "1,2\n")
    arguments = [first, "table.csv", "report.txt", "0", "1", "2"] + ["x"] * more
    expect(
        vostrel(*arguments),
        BANNER + "\ntoo many arguments on command line. Program Aborted\n",
        255,
    )
    assert vostrel.names() == ["table.csv"]


@pytest.mark.parametrize(
    "first",
    ["--STATS", "-stats", "stats", "--help", "-h", "--version", "--stat", "--statsx", "--stats ",
     " --stats", "", "table.csv", "--Stats"],
)
@pytest.mark.parametrize("more", [0, 1, 4, 5])
def test_any_other_first_argument_is_refused(vostrel, first, more):
    vostrel.write("table.csv", "1,2\n")
    arguments = [first] + ["table.csv", "report.txt", "0", "1", "2"][:more]
    expect(
        vostrel(*arguments),
        BANNER + "\nbad first argument on command line. Program Aborted\n",
        255,
    )
    assert vostrel.names() == ["table.csv"]


@pytest.mark.parametrize("more", [0, 1, 2, 3, 4])
def test_missing_arguments_print_the_usage(vostrel, more):
    vostrel.write("table.csv", "1,2\n")
    arguments = ["--stats"] + ["table.csv", "report.txt", "0", "1", "2"][:more]
    expect(vostrel(*arguments), BANNER + USAGE, 255)
    assert vostrel.names() == ["table.csv"]


@pytest.mark.parametrize(
    "flag, is_one",
    [("1", True), ("1.9", True), ("+1", True), (" 1", True), ("01", True), ("1x", True),
     ("0", False), ("2", False), ("2abc", False), ("x", False), ("", False), ("-1", False),
     ("10", False), ("0x1", False), ("true", False)],
)
def test_header_flag_is_read_up_to_its_last_digit(vostrel, flag, is_one):
    vostrel.write("table.csv", "zspec,zphot\n0.1,0.12\n")
    run = vostrel("--stats", "table.csv", "report.txt", flag, "1", "2")
    assert run.returncode == 0
    assert (b"\nheader = zspec,zphot\n" in run.stdout) == is_one
    # With or without the flag, the first line becomes row 0.
    assert vostrel.read("internal.txt") == "0 0 0\n1 0.1 0.12\n"


@pytest.mark.parametrize(
    "col1, col2, message",
    [("x", "2", BAD_ORDER), ("1", "x", BAD_ORDER), ("", "", BAD_ORDER), ("2", "1", BAD_ORDER),
     ("-1", "2", BAD_ORDER), ("2", "2.9", BAD_ORDER), ("1", "4", TOO_LARGE), ("4", "1", TOO_LARGE),
     ("0", "5", TOO_LARGE), ("1", "2147483647", TOO_LARGE)],
)
def test_impossible_column_indices_are_refused(vostrel, col1, col2, message):
    vostrel.write("table.csv", "1,2,3\n")
    expect(
        vostrel("--stats", "table.csv", "report.txt", "0", col1, col2),
        BANNER + "col number 3\n" + message,
        255,
    )
    assert vostrel.read("error.log") == message + FATAL
    assert vostrel.names() == ["error.log", "table.csv"]


@pytest.mark.parametrize(
    "col1, col2, rows",
    [("1", "2abc", "0 1 2\n"), ("2abc", "3", "0 2 3\n"), (" 1.9", "+3abc", "0 1 3\n")],
)
def test_column_indices_are_read_up_to_their_last_digit(vostrel, col1, col2, rows):
    vostrel.write("table.csv", "1,2,3\n")
    run = vostrel("--stats", "table.csv", "report.txt", "0", col1, col2)
    assert run.returncode == 0
    assert vostrel.read("internal.txt") == rows
    assert vostrel.read("error.log") == CREATED
    _, one, two = rows.split()
    assert f"[(col{one} - col{two}) / (1 + col{one})]:" in vostrel.read("report.txt")
