"""The Debian packages: their contents, lintian, and programs run from them."""

import os

import pytest
from conftest import (
    BUILD,
    CMAKE,
    CONSUMER,
    CONSUMER_OUTPUT,
    RELEASE,
    VERSION,
    dead_links,
    need,
    run,
)

PYTHON = "/usr/bin/python3"  # for which the package is made


@pytest.fixture(scope="session")
def packages(tmp_path_factory):
    """The package files by the names of the packages."""
    need("dpkg-deb", "dpkg-shlibdeps", "file", "gzip", "strip")
    folder = tmp_path_factory.mktemp("packages")
    # A strict umask must not change the permissions in the packages.
    before = os.umask(0o077)
    try:
        run(os.environ["CPACK"], "--config", BUILD / "CPackConfig.cmake", "-B", folder)
    finally:
        os.umask(before)
    return {path.name.partition("_")[0]: path for path in folder.glob("*.deb")}


def test_packages_are_finished_in_a_path_with_spaces(copied_source, tmp_path):
    build, staged = tmp_path / "the build", tmp_path / "staged files"
    run(CMAKE, "-S", copied_source, "-B", build)
    given = ["-DCPACK_COMPONENTS_ALL=dev", f"-DCPACK_TEMPORARY_DIRECTORY={staged}"]
    run(CMAKE, *given, "-P", build / "packaging" / "finish.cmake")
    documents = staged / "dev/usr/share/doc/libvostrel-dev"
    assert {path.name for path in documents.iterdir()} == {"changelog.gz", "copyright"}


def field(package, name):
    return run("dpkg-deb", "--field", package, name).strip()


@pytest.fixture
def unpacked(packages, tmp_path):
    def unpack(name):
        run("dpkg-deb", "--extract", packages[name], tmp_path / name)
        return tmp_path / name / "usr"

    return unpack


def test_names_and_versions(packages):
    assert set(packages) == {"vostrel", "libvostrel-dev", "python3-vostrel"}
    for package in packages.values():
        assert field(package, "Version") == VERSION


def test_dependencies(packages):
    for name, package in packages.items():
        assert ("python3" in field(package, "Depends")) == (name == "python3-vostrel")
    assert "libc6" in field(packages["vostrel"], "Depends")
    for part in ["python3 (>= 3.", "python3 (<< 3.", "python3-numpy", "libstdc++6"]:
        assert part in field(packages["python3-vostrel"], "Depends")


def test_the_former_package_of_the_figure_is_replaced(packages):
    for relation in ["Provides", "Replaces", "Breaks"]:
        assert field(packages["python3-vostrel"], relation) == "vostrel-plot"


def test_lintian(packages):
    need("lintian")
    output = run("lintian", "--allow-root", "--fail-on", "error,warning", *packages.values())
    assert output == ""


def test_program_from_the_package(unpacked, tmp_path):
    root = unpacked("vostrel")
    (tmp_path / "table.csv").write_text("1,0.5,0.52\n2,0.8,0.79\n3,1.2,0.9\n")
    operands = ["--stats", "table.csv", "report.txt", "0", "2", "3"]
    console = run(root / "bin" / "vostrel", *operands, cwd=tmp_path)
    assert f"release {RELEASE}\n" in console
    assert "Data size  = 3\n" in (tmp_path / "report.txt").read_text()
    for file in [
        "man/man1/vostrel.1.gz",
        "bash-completion/completions/vostrel",
        "doc/vostrel/copyright",
        "doc/vostrel/changelog.gz",
        "doc/vostrel/examples/redshifts.csv",
    ]:
        assert (root / "share" / file).is_file()
    assert dead_links(root / "share" / "doc" / "vostrel") == []
    changelog = run("gzip", "-dc", root / "share/doc/vostrel/changelog.gz")
    assert changelog.startswith(f"vostrel ({VERSION}) ")


def test_library_from_the_package(unpacked, tmp_path):
    need("pkg-config")
    root = unpacked("libvostrel-dev")
    (pkgconfig,) = root.rglob("pkgconfig")
    flags = run("pkg-config", "--cflags", "--libs", "vostrel", PKG_CONFIG_PATH=str(pkgconfig))
    run(os.environ["CXX"], CONSUMER / "consumer.cpp", "-o", tmp_path / "consumer", *flags.split())
    assert run(tmp_path / "consumer", "catalogue.txt", cwd=CONSUMER) == CONSUMER_OUTPUT


def test_python_package_from_the_package(unpacked, tmp_path):
    root = unpacked("python3-vostrel")
    packages_ = root / "lib" / "python3" / "dist-packages"
    program = (
        "import importlib.metadata, vostrel\n"
        "print(vostrel.__file__, importlib.metadata.version('vostrel'))\n"
        "print(vostrel.point_statistics([1, 3], [1, 2]).norm.bias)\n"
    )
    output = run(PYTHON, "-c", program, cwd=tmp_path, PYTHONPATH=str(packages_))
    assert output == f"{packages_}/vostrel/__init__.py {VERSION}\n0.125\n"
    assert (packages_ / "vostrel" / "py.typed").is_file()
    # RAIL's own packages are beside it in the namespace.
    assert [path.name for path in (packages_ / "rail").iterdir()] == ["vostrel"]
    assert list(packages_.rglob("__pycache__")) == []
    assert (root / "bin" / "vostrel-plot").read_text().startswith(f"#!{PYTHON}\n")
    for command in ("vostrel-plot", "vostrel-evaluate"):
        output = run(root / "bin" / command, "--version", PYTHONPATH=str(packages_))
        assert output == f"{command} {VERSION}\n"
        assert (root / f"share/man/man1/{command}.1.gz").is_file()
