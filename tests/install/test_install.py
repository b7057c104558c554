"""Installing to a scratch prefix, and programs that use the installed library."""

import os
import re
import shlex
import shutil
import subprocess

import pytest
from conftest import (
    ARRAYS_OUTPUT,
    BUILD,
    CMAKE,
    CONSUMER,
    CONSUMER_OUTPUT,
    FETCHED,
    RELEASE,
    SOURCE,
    VERSION,
    configure_and_build,
    configure_parent,
    dead_links,
    need,
    run,
)


HEADERS = ["accumulator.h", "statistics.h", "utils.h"]


class Installed:
    """An installed tree."""

    def __init__(self, prefix):
        self.prefix = prefix
        (self.pkgconfig,) = prefix.rglob("pkgconfig")
        self.libraries = self.pkgconfig.parent
        self.shared = list(self.libraries.glob("*.so")) != []

    def pkg_config(self, *arguments):
        need("pkg-config")
        text = run("pkg-config", *arguments, "vostrel", PKG_CONFIG_PATH=str(self.pkgconfig))
        return shlex.split(text)


@pytest.fixture(scope="session")
def parent(tmp_path_factory, copied_source):
    """The build of a project that fetches vostrel as a shared library and installs it too.

    All sources are compiled as one: it saves time, and some projects ask for it.
    """
    folder = tmp_path_factory.mktemp("shared build")
    options = ["-DVOSTREL_INSTALL=ON", "-DBUILD_SHARED_LIBS=ON"]
    options += ["-DCMAKE_UNITY_BUILD=ON", "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0"]
    configure_parent(folder / "parent", copied_source, FETCHED, *options)
    build = folder / "parent" / "build"
    assert "warning" not in run(CMAKE, "--build", build, "-j2")
    return build


def install(build, folder):
    run(CMAKE, "--install", build, "--prefix", folder / "prefix")
    # An installed tree works without its build, and after it is moved.
    (folder / "prefix").rename(folder / "moved")
    return Installed(folder / "moved")


@pytest.fixture(scope="session")
def static(tmp_path_factory):
    return install(BUILD, tmp_path_factory.mktemp("static library"))


@pytest.fixture(scope="session")
def shared(tmp_path_factory, parent):
    return install(parent, tmp_path_factory.mktemp("shared library"))


@pytest.fixture(params=["static", "shared"])
def installed(request):
    return request.getfixturevalue(request.param)


def test_programs_of_the_parent(parent):
    assert run(parent / "consumer", "catalogue.txt", cwd=CONSUMER) == CONSUMER_OUTPUT
    assert run(parent / "arrays") == ARRAYS_OUTPUT


def test_documents_of_the_parent_stay(shared):
    readme = shared.prefix / "share" / "doc" / "parent" / "README.md"
    assert readme.read_text() == "The parent's."


def test_files(installed):
    files = {str(path.relative_to(installed.prefix)) for path in installed.prefix.rglob("*")}
    library = installed.libraries.relative_to(installed.prefix)
    expected = {
        "bin/vostrel",
        f"{library}/pkgconfig/vostrel.pc",
        f"{library}/cmake/vostrel/vostrel-config.cmake",
        f"{library}/cmake/vostrel/vostrel-config-version.cmake",
        "share/man/man1/vostrel.1",
        "share/bash-completion/completions/vostrel",
        "share/doc/vostrel/README.md",
        "share/doc/vostrel/LICENSE",
        "share/doc/vostrel/examples/redshifts.csv",
        "share/doc/vostrel/docs/library.md",
        "share/doc/vostrel/examples/consumer/consumer.cpp",
    }
    if installed.shared:
        ends = ["", f".{RELEASE}", f".{VERSION}"]
        expected |= {f"{library}/libvostrel_utils.so{end}" for end in ends}
    else:
        expected |= {f"{library}/libvostrel_utils.a"}
    assert expected <= files
    headers = {name for name in files if name.startswith("include/") and name.endswith(".h")}
    assert headers == {f"include/vostrel/{name}" for name in HEADERS}


def test_links_of_the_documents(static):
    documents = static.prefix / "share" / "doc" / "vostrel"
    assert dead_links(documents) == []


def test_runtime_alone_runs(installed, tmp_path):
    console = subprocess.run(
        [installed.prefix / "bin" / "vostrel"], cwd=tmp_path, stdout=subprocess.PIPE, text=True
    )
    assert console.returncode == 255
    assert f"release {RELEASE}\n" in console.stdout


def test_loader_paths(installed):
    need("objdump")
    dynamic = run("objdump", "-p", installed.prefix / "bin" / "vostrel")
    if installed.shared:
        assert f"NEEDED               libvostrel_utils.so.{RELEASE}\n" in dynamic
        library = installed.libraries.relative_to(installed.prefix)
        assert re.search(rf"R(UN)?PATH +\$ORIGIN/\.\./{library}\n", dynamic)
        library = run("objdump", "-p", installed.libraries / "libvostrel_utils.so")
        assert f"SONAME               libvostrel_utils.so.{RELEASE}\n" in library
        assert "PATH  " not in library
    else:
        assert "vostrel_utils" not in dynamic and "PATH  " not in dynamic


def test_installing_a_shared_library_asks_for_ldconfig(parent, tmp_path):
    script = (parent / "vostrel" / "cmake_install.cmake").read_text()
    (hint,) = re.findall(r"\n( *if\(\"\$ENV\{DESTDIR\}\".*?endif\(\))", script, re.DOTALL)
    (tmp_path / "hint.cmake").write_text(hint)
    for prefix, asks in [("/usr/local", True), ("/usr", True), ("/opt/vostrel", False)]:
        output = run(CMAKE, f"-DCMAKE_INSTALL_PREFIX={prefix}", "-P", tmp_path / "hint.cmake")
        assert ("Now run ldconfig" in output) == asks


@pytest.mark.parametrize("name", HEADERS)
def test_header_stands_alone(static, tmp_path, name):
    header = (static.prefix / "include" / "vostrel" / name).read_text()
    assert set(re.findall(r"#include\s*\"(.*)\"", header)) <= set(HEADERS)
    (tmp_path / "alone.cpp").write_text(f"#include <vostrel/{name}>\n")
    compile_ = [os.environ["CXX"], "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror"]
    run(*compile_, f"-I{static.prefix}/include", "-fsyntax-only", tmp_path / "alone.cpp")


def test_consumer_with_cmake(installed, tmp_path):
    shutil.copytree(CONSUMER, tmp_path / "consumer")
    prefix = f"-DCMAKE_PREFIX_PATH={installed.prefix}"
    build = configure_and_build(tmp_path / "consumer", tmp_path / "build", prefix)
    assert run(build / "consumer", "catalogue.txt", cwd=CONSUMER) == CONSUMER_OUTPUT
    assert run(build / "arrays") == ARRAYS_OUTPUT


def test_cmake_package_has_its_version(static, tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.22)\n"
        "project(asks LANGUAGES CXX)\n"
        "find_package(vostrel REQUIRED)\n"
        "message(STATUS found:${vostrel_VERSION}:)\n"
        "find_package(vostrel 2 QUIET)\n"
        "message(STATUS later:${vostrel_FOUND}:)\n"
    )
    prefix = f"-DCMAKE_PREFIX_PATH={static.prefix}"
    output = run(CMAKE, "-S", tmp_path, "-B", tmp_path / "build", prefix)
    assert f"found:{VERSION}:" in output and "later:0:" in output


def test_consumer_with_pkg_config(installed, tmp_path):
    need("pkg-config", "make")
    shutil.copytree(CONSUMER, tmp_path / "consumer")
    run("make", f"PKG_CONFIG_PATH={installed.pkgconfig}", cwd=tmp_path / "consumer")
    environment = {"LD_LIBRARY_PATH": str(installed.libraries)} if installed.shared else {}
    output = run(tmp_path / "consumer" / "consumer", "catalogue.txt", cwd=CONSUMER, **environment)
    assert output == CONSUMER_OUTPUT
    assert run(tmp_path / "consumer" / "arrays", **environment) == ARRAYS_OUTPUT
    assert installed.pkg_config("--modversion") == [VERSION]


GUIDE = re.findall(
    r"```cpp\n(.*?)```\n\n(prints|leaves in `([^`]*)`)\n\n```text\n(.*?)```\n",
    (SOURCE / "docs" / "library.md").read_text(),
    re.DOTALL,
)


def test_guide_is_read_whole():
    text = (SOURCE / "docs" / "library.md").read_text()
    assert len(GUIDE) == text.count("```cpp") == 5
    # These two lines are also those of the consumer, which is built with CMake.
    (lines,) = re.findall(r"^(find_package.*)\n(target_link.*)$", text, re.M)
    project = (CONSUMER / "CMakeLists.txt").read_text()
    assert lines[0] in project and lines[1].replace("program", "${program}") in project


@pytest.mark.parametrize("number", range(len(GUIDE)))
def test_programs_of_the_guide(static, tmp_path, number):
    program, _, file, expected = GUIDE[number]
    shutil.copy(CONSUMER / "catalogue.txt", tmp_path)
    (tmp_path / "program.cpp").write_text(program)
    text = (SOURCE / "docs" / "library.md").read_text()
    compile_ = re.search(r"^g\+\+ (.*pkg-config.*)$", text, re.M)[1]
    compile_ = f"{os.environ['CXX']} -Wall -Wextra -Werror {compile_}"
    # eval lets the path of the library hold spaces.
    run("sh", "-c", f'eval "{compile_}"', cwd=tmp_path, PKG_CONFIG_PATH=str(static.pkgconfig))
    console = run(tmp_path / "program", cwd=tmp_path)
    assert ((tmp_path / file).read_text() if file else console) == expected
