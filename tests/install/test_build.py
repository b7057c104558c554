"""Builds that are refused, and builds as a part of other projects."""

import os
import platform
import re
import subprocess

import pytest
from conftest import ADDED, CMAKE, SOURCE, configure_parent, run


@pytest.mark.parametrize(
    "option, reason",
    [
        ("-ffast-math", "needs NaN, infinities and exact rounding: compile without -ffast-math"),
        ("-mfpmath=387", "needs arithmetic that rounds to double, unlike x87's: compile with"),
    ],
)
def test_options_that_change_results_are_refused(option, reason):
    if option == "-mfpmath=387" and platform.machine() != "x86_64":
        pytest.skip("x87 arithmetic is that of x86 processors")
    for source in [*SOURCE.glob("statistics/*.cpp"), *SOURCE.glob("analysis/*.cpp")]:
        if "double" not in source.read_text():
            continue
        command = [os.environ["CXX"], "-std=c++20", option, "-I.", "-E", source]
        refused = subprocess.run(command, cwd=SOURCE, capture_output=True, text=True)
        assert refused.returncode != 0 and reason in refused.stderr, source


def test_subproject_leaves_its_parent_alone(copied_source, tmp_path):
    parent = tmp_path / "the parent"
    configure_parent(parent, copied_source, ADDED)
    cache = (parent / "build" / "CMakeCache.txt").read_text()
    assert re.search(r"^CMAKE_BUILD_TYPE:STRING=$", cache, re.MULTILINE)
    assert "No tests were found" in run(os.environ["CTEST"], cwd=parent / "build")
    run(CMAKE, "--install", parent / "build", "--prefix", parent / "installed")
    installed = [path for path in (parent / "installed").rglob("*") if path.is_file()]
    assert installed == [parent / "installed/share/doc/parent/README.md"]


def test_an_old_compiler_is_refused_in_one_sentence(tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.22)\n"
        "project(parent LANGUAGES CXX)\n"
        "set(CMAKE_CXX_COMPILER_ID GNU)\n"
        "set(CMAKE_CXX_COMPILER_VERSION 10.2.1)\n"
        f'add_subdirectory("{SOURCE}" vostrel)\n'
    )
    refused = subprocess.run(
        [CMAKE, "-S", tmp_path, "-B", tmp_path / "build"], stderr=subprocess.PIPE, text=True
    )
    assert refused.returncode != 0
    message = re.sub(r"\s+", " ", refused.stderr)
    assert "vostrel needs GCC 11, Clang 14 or newer; this is GNU 10.2.1." in message
