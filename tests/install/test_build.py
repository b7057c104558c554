"""Builds without installing: with one command, and as a part of other projects."""

import os
import re
import shlex
import shutil
import subprocess

import pytest
from conftest import (
    ARRAYS_OUTPUT,
    CMAKE,
    CONSUMER,
    CONSUMER_OUTPUT,
    DATE,
    RELEASE,
    SOURCE,
    builds_once_more,
    parsed_headers,
    run,
)


@pytest.fixture(scope="module")
def flags(tmp_path_factory):
    return parsed_headers(tmp_path_factory.mktemp("headers"))


@builds_once_more
def test_one_command_builds_the_program(flags, tmp_path):
    sources = [SOURCE / "main.cpp"]
    for room in ["utils", "text", "statistics"]:
        sources += sorted((SOURCE / room).glob("*.cpp"))
    command = [os.environ["CXX"], "-std=c++20", *flags, "-I.", *sources]
    run(*command, "-o", tmp_path / "vostrel", cwd=SOURCE)
    console = subprocess.run([tmp_path / "vostrel"], stdout=subprocess.PIPE, text=True).stdout
    assert f"{DATE}, release {RELEASE}\n" in console


ADDED = """
add_subdirectory(vostrel)
"""
FETCHED = """
include(FetchContent)
FetchContent_Declare(vostrel SOURCE_DIR "${CMAKE_CURRENT_SOURCE_DIR}/vostrel")
FetchContent_MakeAvailable(vostrel)
"""
# With a target, a test folder and documents whose names are also vostrel's.
PARENT = """
cmake_minimum_required(VERSION 3.22)
project(parent LANGUAGES CXX)
include(CTest)
include(GNUInstallDirs)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/programs")
add_custom_target(vostrel)
file(WRITE "${CMAKE_BINARY_DIR}/README.md" "The parent's.")
install(FILES "${CMAKE_BINARY_DIR}/README.md" DESTINATION ${CMAKE_INSTALL_DOCDIR})
%s
foreach(program IN ITEMS consumer arrays)
  add_executable(${program} ${program}.cpp)
  target_link_libraries(${program} PRIVATE vostrel::utils)
endforeach()
"""


def build_parent(parent, source, way, flags, *options):
    options += ("-DCMAKE_CXX_FLAGS=" + shlex.join(flags),)
    parent.mkdir()
    (parent / "CMakeLists.txt").write_text(PARENT % way)
    (parent / "vostrel").symlink_to(source)
    for program in ["consumer.cpp", "arrays.cpp"]:
        shutil.copy(CONSUMER / program, parent)
    run(CMAKE, "-S", parent, "-B", parent / "build", *options)
    run(CMAKE, "--build", parent / "build", "-j2")
    programs = parent / "build" / "programs"
    assert run(programs / "consumer", "catalogue.txt", cwd=CONSUMER) == CONSUMER_OUTPUT
    assert run(programs / "arrays") == ARRAYS_OUTPUT
    run(CMAKE, "--install", parent / "build", "--prefix", parent / "installed")
    return parent / "installed" / "share" / "doc"


def test_subproject_leaves_its_parent_alone(copied_source, flags, tmp_path):
    parent = tmp_path / "the parent"
    build_parent(parent, copied_source, ADDED, flags)
    cache = (parent / "build" / "CMakeCache.txt").read_text()
    assert re.search(r"^CMAKE_BUILD_TYPE:STRING=$", cache, re.MULTILINE)
    assert "No tests were found" in run(os.environ["CTEST"], cwd=parent / "build")
    installed = [path for path in (parent / "installed").rglob("*") if path.is_file()]
    assert installed == [parent / "installed/share/doc/parent/README.md"]


@builds_once_more
def test_subproject_installs_when_asked(copied_source, flags, tmp_path):
    parent = tmp_path / "parent"
    documents = build_parent(parent, copied_source, FETCHED, flags, "-DVOSTREL_INSTALL=ON")
    assert (documents / "parent" / "README.md").read_text() == "The parent's."
    assert (documents / "vostrel" / "README.md").is_file()
    assert (parent / "installed/include/vostrel/utils.h").is_file()


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
