"""Runs with little memory either complete correctly or end by std::bad_alloc.

Below a few mebibytes the system can't load the program. Then nothing must be printed or touched.
"""

import os
import resource

import pytest
from support.programs import ABORTED, MEBIBYTE, RUN

KIBIBYTE = 1 << 10
STEP = int(os.environ.get("VOSTREL_MEMORY_STEP") or 4 * MEBIBYTE)

TABLES = {
    "a few rows": ("0.1,0.12\n0.2,0.19\n0.3,0.33\n", RUN),
    "many rows": ("".join(f"0.{i},0.{i + 7}\n" for i in range(100000)), RUN),
    "a long first line": ("1,2," + "3," * (3 * MEBIBYTE) + "4\n5,6\n", RUN),
    "a long header": ("a" * (6 * MEBIBYTE) + ",b\n1,2\n", [*RUN[:3], "1", *RUN[4:]]),
    "a long number": ("1,0." + "3" * (6 * MEBIBYTE) + "\n5,6\n", RUN),
    "a long line behind rows": ("1,2\n" * 30000 + "x" * (6 * MEBIBYTE) + ",7\n5,6\n", RUN),
}


def limits():
    """From too little for any table to more than enough for all, in finer steps below 16 MiB."""
    limit = 512 * KIBIBYTE
    while limit < 16 * MEBIBYTE:
        yield limit
        limit += STEP
    while limit < 128 * MEBIBYTE:
        yield limit
        limit += 10 * STEP


@pytest.mark.parametrize("kind", [resource.RLIMIT_AS, resource.RLIMIT_DATA], ids=["all", "data"])
@pytest.mark.parametrize("name", TABLES)
def test_runs_short_of_memory_finish_or_end_by_bad_alloc(vostrel, name, kind):
    text, arguments = TABLES[name]
    vostrel.write("table.csv", text)
    whole = vostrel(*arguments)
    assert whole.returncode == 0
    expected = vostrel.files()
    ends = []
    for limit in limits():
        for file in expected:
            (vostrel.folder / file).unlink(missing_ok=True)
        run = vostrel(
            *arguments, preexec_fn=lambda limit=limit: resource.setrlimit(kind, (limit, limit))
        )
        files = vostrel.files()
        if run.returncode == 0:
            assert run.stdout == whole.stdout
            assert files == expected
        elif run.stdout == b"":
            assert files == {}
        else:
            assert run.returncode == ABORTED
            assert b"std::bad_alloc" in run.stderr
            assert whole.stdout.startswith(run.stdout)
            for file, text in files.items():
                assert expected[file].startswith(text)
                assert text == b"" or text.endswith(b"\n")
        ends.append(run.returncode)
    assert ends[-1] == 0
    assert any(end != 0 for end in ends)


def test_short_first_rows_do_not_exhaust_the_memory(vostrel):
    """The rows need 40 MB. An estimate from the short first ones would reserve 120 MB."""
    vostrel.write("table.csv", "0,0\n" * 130000 + "-0.0000123457,-0.0000123456\n" * 1000000)
    enough = 80 * MEBIBYTE
    run = vostrel(
        *RUN, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (enough, enough))
    )
    assert run.returncode == 0, run.stderr
