"""Whole runs: console, report, internal.txt, error.log, exit status."""

import platform

from support.programs import BANNER, CREATED, FATAL, TOO_LARGE, expect

ROWS = "5,3,2.9,0.7\n6,3,3.2,0.9\n7,3,2.7,1\n8,3,3.4,0.2\n"
HEADED = "id,zspec,zphot,odds\n" + ROWS

CONSOLE = """\
col number 4

Load data from file: table.csv


Load data from file: internal.txt

Data size  = 4

Statistics:
bias             = -0.05
sigma            = 0.269258
RMS              = 0.273861
MAD              = 0.25
NMAD             = 0.37065
MAD(Delta)       = 0.25
outliers >0.15   = 75%
outliers >1sigma = 50%
outliers >2sigma = 0%
outliers >3sigma = 0%
outliers >4sigma = 0%

bias norm             = -0.0125
sigma norm            = 0.0673146
RMS norm              = 0.0684653
MAD norm              = 0.0625
NMAD norm             = 0.0926625
MAD(Delta_norm)       = 0.0625
outliers norm >0.15   = 0%
outliers norm >1sigma = 50%
outliers norm >2sigma = 0%
outliers norm >3sigma = 0%
outliers norm >4sigma = 0%


Statistics stored in the file report.txt

Execution completed. Bye Bye!

"""

REPORT = """\
Data size  = 4

Statistics on delta [col2 - col3]:
bias             = -0.05
sigma            = 0.269258
RMS              = 0.273861
MAD              = 0.25
NMAD             = 0.37065
MAD(Delta)       = 0.25
outliers >0.15   = 75%
outliers >1sigma = 50%
outliers >2sigma = 0%
outliers >3sigma = 0%
outliers >4sigma = 0%

Statistics on normalized delta [(col2 - col3) / (1 + col2)]:
bias norm             = -0.0125
sigma norm            = 0.0673146
RMS norm              = 0.0684653
MAD norm              = 0.0625
NMAD norm             = 0.0926625
MAD(Delta norm)       = 0.0625
outliers norm >0.15   = 0%
outliers norm >1sigma = 50%
outliers norm >2sigma = 0%
outliers norm >3sigma = 0%
outliers norm >4sigma = 0%
"""

# The processor decides the sign of 0 / 0.
NAN = "-nan" if platform.machine() in ("x86_64", "i686") else "nan"

EMPTY_STATISTICS = f"""\
Data size  = 0

Statistics:
bias             = {NAN}
sigma            = {NAN}
RMS              = {NAN}
MAD              = nan
NMAD             = nan
MAD(Delta)       = nan
outliers >0.15   = {NAN}%
outliers >1sigma = {NAN}%
outliers >2sigma = {NAN}%
outliers >3sigma = {NAN}%
outliers >4sigma = {NAN}%

bias norm             = {NAN}
sigma norm            = {NAN}
RMS norm              = {NAN}
MAD norm              = nan
NMAD norm             = nan
MAD(Delta_norm)       = nan
outliers norm >0.15   = {NAN}%
outliers norm >1sigma = {NAN}%
outliers norm >2sigma = {NAN}%
outliers norm >3sigma = {NAN}%
outliers norm >4sigma = {NAN}%

"""

END = """
Statistics stored in the file report.txt

Execution completed. Bye Bye!

"""

RUN = ["--stats", "table.csv", "report.txt", "0", "2", "3"]


def test_a_run_leaves_console_report_rows_and_log(vostrel):
    vostrel.write("table.csv", ROWS)
    expect(vostrel(*RUN), BANNER + CONSOLE, 0)
    assert vostrel.read("report.txt") == REPORT
    assert vostrel.read("internal.txt") == "0 3 2.9\n1 3 3.2\n2 3 2.7\n3 3 3.4\n"
    assert vostrel.read("error.log") == CREATED
    assert vostrel.names() == ["error.log", "internal.txt", "report.txt", "table.csv"]


def test_a_header_is_shown_and_counts_as_an_object_of_zeros(vostrel):
    vostrel.write("table.csv", HEADED)
    run = vostrel("--stats", "table.csv", "report.txt", "1", "2", "3")
    console = run.stdout.decode()
    assert console.startswith(
        BANNER
        + "\nheader = id,zspec,zphot,odds\n"
        + "col number 4\n\nLoad data from file: table.csv\n\n"
    )
    assert "\nData size  = 5\n" in console
    # (0 + 0.1 - 0.2 + 0.3 - 0.4) / 5, and sqrt(0.3 / 5)
    assert "\nbias             = -0.04\n" in console
    assert "\nRMS              = 0.244949\n" in console
    assert vostrel.read("internal.txt") == "0 0 0\n1 3 2.9\n2 3 3.2\n3 3 2.7\n4 3 3.4\n"
    assert run.returncode == 0


def test_a_second_run_replaces_everything_but_the_log(vostrel):
    vostrel.write("table.csv", HEADED * 3)
    vostrel(*RUN)
    vostrel.write("table.csv", ROWS)
    expect(vostrel(*RUN), BANNER + CONSOLE, 0)
    assert vostrel.read("report.txt") == REPORT
    assert vostrel.read("internal.txt") == "0 3 2.9\n1 3 3.2\n2 3 2.7\n3 3 3.4\n"
    assert vostrel.read("error.log") == CREATED * 2


def test_numbers_have_no_trailing_zeros_and_no_separators(vostrel):
    vostrel.write("table.csv", ("1,0\n" + "1,1\n" * 7) * 125)
    run = vostrel("--stats", "table.csv", "report.txt", "0", "1", "2")
    for text in (run.stdout.decode(), vostrel.read("report.txt")):
        assert "Data size  = 1000\n" in text
        assert "outliers >0.15   = 12.5%\n" in text


def test_small_statistics_have_an_exponent(vostrel):
    # delta = 0.000015; delta norm = 0.000015 / 1.000015 = 0.00001499977...
    vostrel.write("table.csv", "0.000015,0\n")
    run = vostrel("--stats", "table.csv", "report.txt", "0", "1", "2")
    for text in (run.stdout.decode(), vostrel.read("report.txt")):
        assert "\nbias             = 1.5e-05\n" in text
        assert "\nNMAD             = 2.2239e-05\n" in text
        assert "\nbias norm             = 1.49998e-05\n" in text


def test_the_first_number_above_a_bound_is_an_outlier(vostrel):
    # 0.65 - 0.5 is 0.15000000000000002, the double after 0.15.
    vostrel.write("table.csv", "0.65,0.5\n0.15,0\n")
    run = vostrel("--stats", "table.csv", "report.txt", "0", "1", "2")
    for text in (run.stdout.decode(), vostrel.read("report.txt")):
        assert "\noutliers >0.15   = 50%\n" in text


def test_every_comma_of_the_first_line_counts_as_a_column(vostrel):
    vostrel.write("table.csv", "1,,3\n")
    run = vostrel("--stats", "table.csv", "report.txt", "0", "1", "3")
    assert run.stdout.decode().startswith(BANNER + "col number 3\n\nLoad data")
    # The empty field is skipped, and the third position starts again at the first field.
    assert vostrel.read("internal.txt") == "0 1 1\n"


def test_a_missing_table_ends_the_run(vostrel):
    vostrel.write("internal.txt", "old rows\n")
    message = "*** file table.csv not found! ***\n"
    expect(vostrel(*RUN), BANNER + message, 255)
    assert vostrel.read("error.log") == message + FATAL
    assert vostrel.read("internal.txt") == "old rows\n"
    assert vostrel.read("report.txt") is None


def test_failing_runs_add_to_the_log(vostrel):
    vostrel.write("error.log", "from before\n")
    message = "*** file table.csv not found! ***\n"
    for _ in range(3):
        vostrel(*RUN)
    assert vostrel.read("error.log") == "from before\n" + (message + FATAL) * 3


def test_a_table_separated_by_spaces_has_one_column(vostrel):
    vostrel.write("table.csv", "0.1 0.12\n")
    vostrel.write("internal.txt", "old rows\n")
    vostrel.write("report.txt", "old report\n")
    expect(vostrel(*RUN), BANNER + "col number 1\n" + TOO_LARGE, 255)
    assert vostrel.read("error.log") == TOO_LARGE + FATAL
    assert vostrel.read("internal.txt") == "old rows\n"
    assert vostrel.read("report.txt") == "old report\n"


def test_a_directory_is_a_table_of_one_column(vostrel):
    (vostrel.folder / "table.csv").mkdir()
    expect(vostrel(*RUN), BANNER + "col number 1\n" + TOO_LARGE, 255)
    assert vostrel.read("error.log") == TOO_LARGE + FATAL


def test_a_trailing_comma_ends_the_run_abnormally_after_whole_rows(vostrel):
    vostrel.write("table.csv", "1,2,3\n4,5,6\n0.1,0.2,\n7,8,9\n")
    run = vostrel("--stats", "table.csv", "report.txt", "0", "1", "3")
    assert run.stdout.decode() == BANNER + "col number 3\n\nLoad data from file: table.csv\n\n"
    assert run.returncode == -6  # SIGABRT
    assert vostrel.read("internal.txt") == "0 1 3\n1 4 6\n"
    assert vostrel.names() == ["internal.txt", "table.csv"]


def test_a_table_that_is_the_intermediate_file_is_emptied(vostrel):
    vostrel.write("internal.txt", ROWS)
    run = vostrel("--stats", "internal.txt", "report.txt", "0", "2", "3")
    loading = "\nLoad data from file: internal.txt\n\n"
    expect(run, BANNER + "col number 4\n" + loading * 2 + EMPTY_STATISTICS + END, 0)
    assert vostrel.read("internal.txt") == ""
    assert vostrel.read("error.log") == CREATED


def test_an_intermediate_file_that_cannot_be_created_gives_a_run_without_data(vostrel):
    vostrel.write("table.csv", ROWS)
    (vostrel.folder / "internal.txt").symlink_to("no such folder/internal.txt")
    expect(
        vostrel(*RUN),
        BANNER
        + "col number 4\n\nLoad data from file: table.csv\n\n"
        + "*** file internal.txt not found! ***\n"
        + EMPTY_STATISTICS
        + END,
        0,
    )
    assert vostrel.read("error.log") == CREATED
    assert vostrel.read("report.txt").startswith(
        f"Data size  = 0\n\nStatistics on delta [col2 - col3]:\nbias             = {NAN}\n"
    )


def test_an_intermediate_file_that_is_a_directory_gives_a_run_without_data(vostrel):
    vostrel.write("table.csv", ROWS)
    (vostrel.folder / "internal.txt").mkdir()
    expect(
        vostrel(*RUN),
        BANNER
        + "col number 4\n\nLoad data from file: table.csv\n\n"
        + "\nLoad data from file: internal.txt\n\n"
        + EMPTY_STATISTICS
        + END,
        0,
    )


def test_a_read_only_folder_gives_a_run_without_data(vostrel, without_rights):
    vostrel.write("table.csv", ROWS)
    vostrel.folder.chmod(0o555)
    expect(
        vostrel(*RUN, **without_rights),
        BANNER
        + "col number 4\n\nLoad data from file: table.csv\n\n"
        + "*** file internal.txt not found! ***\n"
        + EMPTY_STATISTICS
        + END,
        0,
    )
    assert vostrel.names() == ["table.csv"]


def test_a_failure_in_a_read_only_folder_is_not_logged(vostrel, without_rights):
    vostrel.folder.chmod(0o555)
    expect(vostrel(*RUN, **without_rights), BANNER + "*** file table.csv not found! ***\n", 255)
    assert vostrel.names() == []


def test_an_unreadable_table_is_not_found(vostrel, without_rights):
    vostrel.write("table.csv", ROWS)
    (vostrel.folder / "table.csv").chmod(0)
    message = "*** file table.csv not found! ***\n"
    expect(vostrel(*RUN, **without_rights), BANNER + message, 255)
    assert vostrel.read("error.log") == message + FATAL


def test_a_report_that_cannot_be_opened_looks_like_success(vostrel):
    vostrel.write("table.csv", ROWS)
    for name in ("no such folder/report.txt", "", "."):
        run = vostrel("--stats", "table.csv", name, "0", "2", "3")
        expect(run, BANNER + CONSOLE.replace("report.txt", name), 0)
    assert vostrel.names() == ["error.log", "internal.txt", "table.csv"]


def test_a_read_only_report_stays_as_it_was(vostrel, without_rights):
    vostrel.write("table.csv", ROWS)
    vostrel.write("report.txt", "old report\n")
    (vostrel.folder / "report.txt").chmod(0o444)
    expect(vostrel(*RUN, **without_rights), BANNER + CONSOLE, 0)
    assert vostrel.read("report.txt") == "old report\n"
    assert vostrel.read("internal.txt") == "0 3 2.9\n1 3 3.2\n2 3 2.7\n3 3 3.4\n"


def test_a_full_device_as_report_looks_like_success(vostrel):
    vostrel.write("table.csv", ROWS)
    run = vostrel("--stats", "table.csv", "/dev/full", "0", "2", "3")
    expect(run, BANNER + CONSOLE.replace("report.txt", "/dev/full"), 0)


def test_the_plain_program_leaves_the_same_bytes(both):
    for table in (ROWS, HEADED, ROWS.replace("\n", "\r\n"), "a,b,c\n-1,nan,inf\n-1,-1,-1\n" * 9):
        both.write("table.csv", table)
        assert both("--stats", "table.csv", "report.txt", "1", "1", "3").returncode == 0
