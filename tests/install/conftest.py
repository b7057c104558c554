"""Shared by the tests of documents, installation and packages.

The environment names the built program (VOSTREL), the project and its build (VOSTREL_SOURCE,
VOSTREL_BUILD), the version and date that the build found (VOSTREL_VERSION, VOSTREL_RELEASE_DATE),
and the tools of the build (CXX, CMAKE, CTEST, CPACK).
"""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

SOURCE = pathlib.Path(os.environ["VOSTREL_SOURCE"])
BUILD = pathlib.Path(os.environ["VOSTREL_BUILD"])
VERSION = os.environ["VOSTREL_VERSION"]
DATE = os.environ["VOSTREL_RELEASE_DATE"]
RELEASE = VERSION.rpartition(".")[0]
CMAKE = os.environ["CMAKE"]
CONSUMER = SOURCE / "examples" / "consumer"
ARRAYS_OUTPUT = """\
objects   4
bias      -0.047
NMAD      0.0207564
outliers  25%
"""
CONSUMER_OUTPUT = "\nLoad data from file: catalogue.txt\n\n" + ARRAYS_OUTPUT

PACKAGE_OF = {
    "doxygen": "doxygen",
    "dpkg-deb": "dpkg",
    "dpkg-shlibdeps": "dpkg-dev",
    "file": "file",
    "gzip": "gzip",
    "lintian": "lintian",
    "make": "make",
    "man": "man-db",
    "mandoc": "mandoc",
    "objdump": "binutils",
    "pkg-config": "pkg-config",
    "strip": "binutils",
}


def need(*tools):
    """Fails the test if a tool is missing, and says what to install."""
    for tool in tools:
        if shutil.which(tool) is None:
            pytest.fail(
                f"{tool} is missing: install the Debian package {PACKAGE_OF[tool]}", pytrace=False
            )


def run(*command, cwd=None, **environment):
    """Runs a command that must succeed. Returns its standard output and error as one text."""
    result = subprocess.run(
        [str(part) for part in command],
        cwd=cwd,
        env={**os.environ, "LC_ALL": "C.UTF-8", **environment},
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    assert result.returncode == 0, f"{command}:\n{result.stdout}"
    return result.stdout


def dead_links(folder):
    """The broken relative links in the Markdown files below a folder."""
    return [
        (document.name, link)
        for document in folder.rglob("*.md")
        for link in re.findall(r"\]\(([^)#\s]+)", document.read_text())
        if "://" not in link and not (document.parent / link).exists()
    ]


def configure_and_build(source, build, *options):
    run(CMAKE, "-S", source, "-B", build, *options)
    run(CMAKE, "--build", build, "-j2")
    return build


# With a target, a folder, tests and documents whose names are also vostrel's.
PARENT = """
cmake_minimum_required(VERSION 3.22)
project(parent LANGUAGES CXX)
include(CTest)
include(GNUInstallDirs)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
add_custom_target(vostrel)
file(WRITE "${CMAKE_BINARY_DIR}/README.md" "The parent's.")
install(FILES "${CMAKE_BINARY_DIR}/README.md" DESTINATION ${CMAKE_INSTALL_DOCDIR})
%s
foreach(program IN ITEMS consumer arrays)
  add_executable(${program} ${program}.cpp)
  target_link_libraries(${program} PRIVATE vostrel::utils)
endforeach()
"""
ADDED = """
add_subdirectory(vostrel)
"""
FETCHED = """
include(FetchContent)
FetchContent_Declare(vostrel SOURCE_DIR "${CMAKE_CURRENT_SOURCE_DIR}/vostrel"
  BINARY_DIR "${CMAKE_BINARY_DIR}/vostrel")
FetchContent_MakeAvailable(vostrel)
"""


def configure_parent(parent, source, way, *options):
    """Configures a project with vostrel as a part, in parent/build."""
    parent.mkdir()
    (parent / "CMakeLists.txt").write_text(PARENT % way)
    (parent / "vostrel").symlink_to(source)
    for program in ["consumer.cpp", "arrays.cpp"]:
        shutil.copy(CONSUMER / program, parent)
    run(CMAKE, "-S", parent, "-B", parent / "build", *options)


@pytest.fixture(scope="session")
def copied_source(tmp_path_factory):
    """A copy of the source tree, in a path with spaces."""
    copy = tmp_path_factory.mktemp("other place") / "source tree"
    left_out = shutil.ignore_patterns("build*", ".git", "node_modules", "__pycache__")
    shutil.copytree(SOURCE, copy, ignore=left_out)
    return copy
