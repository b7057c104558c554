"""The commands of the documents that the tests of the pages leave out, and where each runs.

They install, build, measure, or test for long.
"""

from support.pages import DOCUMENTS, INSTALLS, blocks

#: The commands of these documents are tests themselves, or measure.
BY_HAND = {"CONTRIBUTING.md", "performance.md", "reliability.md"}
#: tests/install/test_install.py compiles the programs of this one.
COMPILED = {"library.md"}

#: Scripts have these commands word by word.
ELSEWHERE = {
    "./scripts/test": ".ci/run",
    "./scripts/check": ".ci/run",
    "cmake --preset tests && cmake --build --preset tests && tests/summarize ctest --preset tests":
        "scripts/test",
    "ctest --preset tests -L reliability": "scripts/check",
    "ctest --test-dir build-fuzz -L fuzz": "scripts/check",
}

STATISTICS = "--stats examples/redshifts.csv report.txt 0 2 3 && test $(wc -l <report.txt) -eq 27"
CATALOGUE = "sed '1i id,zspec,zphot,odds' examples/redshifts.csv"
PACKAGE = "venv/bin/python -c 'import vostrel; print(vostrel.point_statistics([1, 3], [1, 2]))'"

#: tests/commands runs these commands, and then looks at what they leave or, as standard input,
#: printed.
RUN = {
    # README.md
    "./scripts/demo":
        "grep 'All numbers of report.txt are the same' && test -s build/demo/vostrel.png",
    "apt install cmake g++ python3-dev python3-venv":
        "dpkg --status cmake g++ python3-dev python3-venv",
    "python3 -m venv venv && . venv/bin/activate && pip install '.[evaluate]'":
        f"{CATALOGUE} | venv/bin/vostrel-evaluate - zspec zphot | grep 'zphot: 2000 objects'",
    "cmake -S . -B build && cmake --build build && cmake --install build --prefix venv":
        f"venv/bin/vostrel {STATISTICS}",
    "g++ -std=c++20 -O2 -ffp-contract=off -I. main.cpp utils/*.cpp text/*.cpp statistics/*.cpp "
    "-o vostrel":
        f"./vostrel {STATISTICS}",
    "apt install dpkg-dev file python3-numpy python3-pybind11 python3-setuptools python3-wheel":
        "dpkg --status dpkg-dev file python3-numpy python3-pybind11 python3-setuptools",
    "cmake -S . -B build-deb -DCMAKE_INSTALL_PREFIX=/usr && cmake --build build-deb":
        f"build-deb/vostrel {STATISTICS}",
    "cpack --config build-deb/CPackConfig.cmake -B build-deb/packages && "
    "apt install ./build-deb/packages/*.deb":
        # Or only simulated.
        "grep '^Inst python3-vostrel' || "
        f"{{ /usr/bin/vostrel {STATISTICS} && /usr/bin/vostrel-evaluate --version; }}",
    # CONTRIBUTING.md
    "cmake -S tests/fuzz -B build-fuzz && cmake --build build-fuzz":
        "test -x build-fuzz/fuzz_medians",
    "build-fuzz/fuzz_medians -runs=10000000": "grep 'Done 10000 runs'",
    "tests/mutate utils/*.cpp statistics/*":
        "grep -E '^[1-9][0-9]* killed, .* at 1 of 1 places'",
    "bench/run": "grep '10^4 rows, peak memory'",
    "git grep -n sigma_68": "grep statistics/quantiles.h",
    # docs/performance.md
    "bench/run --peers": "grep -E 'pandas, 10\\^4 rows \\|  \\| [0-9.]+ s,'",
    "bench/run --parts": "grep '^find_field'",
    "bench/evaluate": "grep '^t.parquet, 6 of 6 columns'",
    "bench/evaluate --large": "grep '^HDF5 in passes'",
    # docs/python.md
    "python3 -m venv venv && venv/bin/pip install .": PACKAGE,
    "python3 -m venv --system-site-packages venv && venv/bin/pip install --no-build-isolation .":
        PACKAGE,
    # CONTRIBUTING.md, with the environment of docs/python.md
    "bench/python": "grep '^| import beyond NumPy'",
    "bench/python_bootstrap": "grep '^error of nmad: [0-9.]*, scipy'",
    "bench/scale": "grep 'mean and std of delta, sorted by redshift'",
    "bench/coverage": "grep '^| outliers_4sigma'",
    # docs/rail.md, docs/scale.md
    "pip install '.[rail]'":
        "grep '^Would install .*vostrel' || $VOSTREL_NEWEST/bin/python -c 'import rail.vostrel'",
    "pip install tqdm h5py 'dask[dataframe]' distributed mpi4py":
        "$VOSTREL_NEWEST/bin/python -c 'import tqdm, h5py, dask.dataframe, distributed, mpi4py'",
    # docs/reliability.md
    "tests/reliability/campaign":
        "test $(grep -cE '^[a-z_]+ +exit 0 ') -eq 12",
    "tests/reliability/campaign whole_runs interrupts":
        "test $(grep -cE '^[a-z_]+ +exit 0 ') -eq 2",
}

#: What the tests run instead of the figures of the documents.
SMALLER = {"-runs=10000000": "-runs=10000"}


def commands():
    """Return the commands, in the order in which the documents have them."""
    found = []
    for document in DOCUMENTS:
        for _, language, code, _ in blocks(document):
            left_out = document.name in BY_HAND or INSTALLS.search(code)
            if language == "sh" and left_out and document.name not in COMPILED:
                found += [line.partition("  #")[0].rstrip() for line in code.splitlines()]
    return list(dict.fromkeys(found))
