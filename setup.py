"""Builds vostrel._core. Everything else is in pyproject.toml."""

import glob
import os
import re

from pybind11.setup_helpers import ParallelCompile, Pybind11Extension, build_ext
from setuptools import setup
from setuptools.command.build_py import build_py


class BuildModules(build_py):
    """Copies the modules that have changed, and removes those that are no longer there."""

    def run(self) -> None:
        super().run()
        there = {os.path.normpath(path) for path in self.get_outputs(include_bytecode=False)}
        for package in ("rail", "vostrel"):
            built = os.path.join(self.build_lib, package, "**", "*.py*")
            for path in glob.glob(built, recursive=True):
                if os.path.normpath(path) not in there:
                    os.remove(path)


def version() -> str:
    """Return the version, which version.h defines."""
    with open("version.h", encoding="utf-8") as header:
        found = re.search(r'kVersion = "([^"]+)"', header.read())
    if found is None:
        raise RuntimeError("version.h doesn't define kVersion")
    return found[1]


ParallelCompile().install()  # compiles on all cores
setup(
    version=version(),
    cmdclass={"build_ext": build_ext, "build_py": BuildModules},
    ext_modules=[
        Pybind11Extension(
            "vostrel._core",
            ["python/src/core.cpp", "python/src/engine.cpp"],
            depends=glob.glob("*.h")
            + glob.glob("analysis/*")
            + glob.glob("python/src/*")
            + glob.glob("statistics/*"),
            include_dirs=["."],
            cxx_std=20,
            # As for the program: each operation rounds as written.
            extra_compile_args=["-O3", "-ffp-contract=off", "-g0"],
            extra_link_args=["-s"],
        )
    ],
)
