"""Runs the commands of the documents that install, build, measure, or test for long.

`scripts/check commands` runs these tests in a copy of the machine, which vanishes with all that
they install. Where it can't make one, apt and pip only simulate. With VOSTREL_SMALL, measurements
and long tests are short.
"""

import functools
import os
import shutil
import subprocess

import pytest
from support.commands import RUN, SMALLER
from support.pages import HOME

COPY = "VOSTREL_COPY" in os.environ
#: By the beginning of a command, the Python environment in which it runs.
ENVIRONMENTS = {
    "pip install": os.environ["VOSTREL_NEWEST"],
    **dict.fromkeys(("bench/evaluate", "bench/python", "bench/scale", "bench/coverage"),
                    str(HOME / "venv")),
}


def shell(script, **options):
    return subprocess.run(
        ["bash", "-eo", "pipefail", "-c", script], cwd=HOME, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, text=True, **options,
    )


@pytest.mark.parametrize("command", RUN)
def test_command(command, tmp_path):
    apt = tmp_path / "apt.conf"
    apt.write_text('APT::Get::Assume-Yes "true";\n' + 'APT::Get::Simulate "true";\n' * (not COPY))
    path = "/usr/sbin:/usr/bin:/sbin:/bin"  # `python3` is Debian's
    for start, folder in ENVIRONMENTS.items():
        if command.startswith(start):
            path = f"{folder}/bin:{path}"
    variables = {**os.environ, "PATH": path, "APT_CONFIG": str(apt), "MAKEFLAGS": "-j2"}
    if command.startswith("python3 -m venv"):
        shutil.rmtree(HOME / "venv", ignore_errors=True)
    if not COPY and command.startswith("pip install"):
        variables["PIP_DRY_RUN"] = "1"
    small = functools.reduce(lambda text, swap: text.replace(*swap), SMALLER.items(), command)
    run = shell(small, env=variables)
    assert run.returncode == 0, run.stdout
    check = shell(RUN[command], input=run.stdout)
    assert check.returncode == 0, f"{check.stdout}\n{run.stdout}"
