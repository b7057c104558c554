"""vostrel.rail: the bits of RAIL's exact metrics, for any chunk size and number of processes."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

import h5py
import numpy as np
import pandas as pd
import pytest
import qp
import rail.stages
import rail.vostrel
import tables_io
import vostrel
import yaml
from data_sets import LONG, redshifts, same_bits
from qp.metrics import point_estimate_metric_classes as metric_classes
from rail.core import RailEnv
from rail.core.data import QPHandle, TableHandle
from rail.evaluation.point_to_point_evaluator import (
    PointToPointBinnedEvaluator,
    PointToPointEvaluator,
)
from rail.utils.path_utils import find_rail_file
from support.pages import follow
from vostrel.rail import VostrelPointToPointBinnedEvaluator, VostrelPointToPointEvaluator

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "rail.md"

#: RAIL's metrics of a sample.
METRICS = {
    metric.metric_name: metric()
    for metric in (
        metric_classes.PointBias,
        metric_classes.PointSigmaIQR,
        metric_classes.PointSigmaMAD,
        metric_classes.PointOutlierRate,
    )
}


def ensemble(estimate):
    """An ensemble with point estimates, as RAIL's estimators write it."""
    column = np.reshape(estimate, (-1, 1))
    widths = np.full(column.shape, 0.1)
    return qp.Ensemble(
        qp.stats.norm, data={"loc": np.nan_to_num(column), "scale": widths}, ancil={"zmode": column}
    )


def evaluate(stage_class, truth, estimate, **options):
    """The tables of a stage, which writes no files."""
    if not isinstance(truth, dict):
        truth = {"redshift": truth}
    stage = stage_class.make_stage(name="stage", output_mode="return", **options)
    stage.data_store.__class__.allow_overwrite = True  # RAIL's own stage in bins needs it
    return stage.evaluate(ensemble(estimate), {"photometry": truth})


def summary(stage_class, truth, estimate, **options):
    return evaluate(stage_class, truth, estimate, **options)["summary"].data


def write_files(truth, estimate):
    """The handles of files with these columns."""
    ensemble(estimate).write_to("estimates.hdf5")
    tables_io.write({"photometry": {"redshift": truth}}, "truth.hdf5")
    return QPHandle("input", path="estimates.hdf5"), TableHandle("truth", path="truth.hdf5")


def finite_sets(rng, count):
    """Truths and estimates without NaN or infinities, from one object to thousands."""
    for number in range(count):
        n = int(rng.integers(1, 50) if number % 3 else rng.integers(1000, 20_000))
        truth, estimate = redshifts(rng, n)
        if number % 4 == 1:  # many are equal
            truth, estimate = np.round(truth, 1), np.round(estimate, 1)
        if number % 4 == 2:  # so narrow that the bound of outliers is 0.06
            estimate = truth + rng.choice([0, 0.06, 0.061, -0.06], n) * (1 + truth)
        yield truth, estimate


def test_the_bits_of_rails_exact_metrics(rng):
    edges = np.linspace(0, 2, 6)
    for truth, estimate in finite_sets(rng, 300):
        size = int(rng.integers(1, 2 * len(truth) + 1))
        size = max(size, len(truth) // 20)
        found = summary(VostrelPointToPointEvaluator, truth, estimate, chunk_size=size)
        for name, metric in METRICS.items():
            assert same_bits(found[name], [metric.evaluate(estimate, truth)]), name
        bins = {"bin_max": 2.0, "nbin": 5, "chunk_size": size}
        binned = summary(VostrelPointToPointBinnedEvaluator, truth, estimate, **bins)
        for i in range(5):
            inside = (truth >= edges[i]) & ((truth < edges[i + 1]) | (i == 4) & (truth == edges[5]))
            assert binned["n"][i] == inside.sum()
            for name, metric in METRICS.items() if inside.any() else ():
                expected = metric.evaluate(estimate[inside], truth[inside])
                assert same_bits(binned[name][i], expected), name


def test_the_tables_of_rails_own_stages(rng):
    truth, estimate = redshifts(rng, 20_000)
    truth = np.minimum(truth, 1.99)
    names = [*METRICS, "point_stats_ez"]
    stages = [
        (PointToPointEvaluator, VostrelPointToPointEvaluator, {}, {}),
        # Ten edges make nine bins there.
        (PointToPointBinnedEvaluator, VostrelPointToPointBinnedEvaluator,
         {"bin_max": 2.0, "nbin": 10}, {"nbin": 9}),
    ]
    for theirs, ours, options, changed in stages:
        options = {"metrics": names, **options}
        expected = evaluate(theirs, truth, estimate, force_exact=True, **options)
        found = evaluate(ours, truth, estimate, **{**options, **changed})
        for tag in ("output", "summary"):
            for name, values in expected[tag].data.items():
                assert same_bits(found[tag].data[name], values), (tag, name)


def test_rails_own_test_of_point_metrics():
    # The data and the values of test_point_metrics in pz-rail-base 2.0.11.
    np.random.seed(87)
    truth = np.random.uniform(high=2.5, size=399)
    loc = truth[:, np.newaxis] + np.random.normal(0.0, 0.01, 399)[:, np.newaxis]
    scale = np.ones((399, 1)) * 0.1 + np.random.uniform(size=(399, 1)) * 0.05
    grid = np.linspace(0, 2.5, 301)
    pdfs = qp.Ensemble(qp.stats.norm, data={"loc": loc, "scale": scale})
    estimate = pdfs.convert_to(qp.interp_gen, xvals=grid).mode(grid=grid).flatten()
    found = summary(VostrelPointToPointEvaluator, truth, estimate)
    assert np.isclose(found["point_stats_iqr"], 0.0045947)
    assert np.isclose(found["point_bias"], -0.00001576)
    assert np.isclose(found["point_outlier_rate"], 0.0)
    assert np.isclose(found["point_stats_sigma_mad"], 0.0046489)


def test_tables_have_all_numbers_of_vostrel(rng):
    truth, estimate = redshifts(rng, 1000)
    expected = vostrel.chunked_statistics([(truth, estimate)]).to_dict()
    found = summary(VostrelPointToPointEvaluator, truth, estimate)
    assert {name: found[name].tolist() for name in expected} == {
        name: [value] for name, value in expected.items()
    }


def test_nan_masks_and_empty_bins(rng):
    truth, estimate = redshifts(rng, 1000)
    truth = truth % 1.0
    estimate[:10] = np.nan
    bad = np.zeros(1000, bool)
    bad[5:30] = True
    table = {"redshift": truth, "bad": bad}
    found = summary(VostrelPointToPointEvaluator, table, estimate, mask_key="bad")
    assert (found["n"], found["n_masked"], found["n_nan"]) == (970, 25, 5)
    expected = METRICS["point_bias"].evaluate(estimate[30:], truth[30:])
    assert same_bits(found["point_bias"], [expected])

    masked = {"redshift": np.ma.array(truth, mask=bad)}
    tables = evaluate(VostrelPointToPointEvaluator, masked, estimate)
    assert tables["summary"].data == found
    assert np.isnan(tables["output"].data["point_stats_ez"]).nonzero()[0].tolist() == [*range(30)]

    binned = summary(
        VostrelPointToPointBinnedEvaluator, table, estimate, mask_key="bad", bin_edges=[0, 1, 2]
    )
    assert binned["n"].tolist() == [970, 0]
    assert binned["n_nan"].tolist() == [5, 0]
    assert binned["n_masked"].tolist() == [25, 25]
    assert np.isnan(binned["point_bias"]).tolist() == [False, True]
    with pytest.raises(ValueError, match="10 of 1000 objects have NaN"):
        summary(VostrelPointToPointEvaluator, truth, estimate, nan_policy="raise")


@pytest.mark.parametrize("kept", [2**27, 0], ids=["kept", "read in each pass"])
@pytest.mark.parametrize("size", [999, 20_000, 10**6])
def test_files_are_read_in_chunks(size, kept, rng, monkeypatch):
    monkeypatch.setattr(rail.vostrel, "KEPT_BYTES", kept)
    truth, estimate = redshifts(rng, 20_001)
    expected = evaluate(VostrelPointToPointEvaluator, truth, estimate)
    stage = VostrelPointToPointEvaluator.make_stage(name="stage", chunk_size=size)
    found = stage.evaluate(*write_files(truth, estimate))
    for tag in ("summary", "output"):
        for name, values in expected[tag].data.items():
            assert same_bits(tables_io.read(found[tag].path)[name], values), name


def test_a_notebook_may_run_a_stage_again(rng):
    stage = VostrelPointToPointEvaluator.make_stage(name="again")
    for _ in range(2):
        truth, estimate = redshifts(rng, 10)
        table = {"photometry": pd.DataFrame({"redshift": truth})}
        tables = stage.evaluate(ensemble(estimate), table)
        expected = vostrel.chunked_statistics([(truth, estimate)])
        assert tables["summary"]()["norm_bias"] == expected.norm.bias


def test_chosen_metrics(rng):
    truth, estimate = redshifts(rng, 10)
    tables = evaluate(VostrelPointToPointEvaluator, truth, estimate, metrics=["point_bias", "n"])
    assert sorted(tables["summary"].data) == ["n", "point_bias"]
    assert tables["output"].data == {}
    excluded = {"exclude_metrics": ["point_bias", "point_stats_ez"]}
    tables = evaluate(VostrelPointToPointEvaluator, truth, estimate, **excluded)
    assert "point_bias" not in tables["summary"].data and "norm_nmad" in tables["summary"].data
    assert tables["output"].data == {}


@pytest.mark.parametrize(
    "options, message",
    [
        ({"metrics": ["point_biass"]}, "there is no metric 'point_biass'; there are"),
        ({"point_estimate_key": "zmean"}, "input has no column 'zmean'; it has: zmode"),
        ({"reference_dictionary_key": "z"}, "truth has no column 'z'; it has: redshift"),
        ({"nan_policy": "ignore"}, "nan_policy of chunks must be"),
    ],
)
def test_wrong_options_are_refused(options, message):
    with pytest.raises(ValueError, match=message):
        summary(VostrelPointToPointEvaluator, np.ones(3), np.ones(3), **options)


def test_columns_of_different_lengths_are_refused():
    for truth, estimate in ((np.ones(3), np.ones(4)), (np.ones(4), np.ones(2))):
        with pytest.raises(ValueError, match="input and truth differ in length"):
            summary(VostrelPointToPointEvaluator, truth, estimate, chunk_size=2)


def test_rail_finds_the_stages():
    assert "rail.vostrel" in RailEnv.list_rail_packages()
    rail.stages.import_and_attach_all(silent=True)
    assert rail.stages.VostrelPointToPointEvaluator is VostrelPointToPointEvaluator
    assert rail.stages.VostrelPointToPointBinnedEvaluator is VostrelPointToPointBinnedEvaluator


PIPELINE = """
modules: rail.vostrel
site:
  name: local
  max_threads: 4
  mpi_command: mpirun --allow-run-as-root --oversubscribe -n
stages:
  - name: whole
    classname: VostrelPointToPointEvaluator
    module_name: rail.vostrel
    nprocess: {processes}
    aliases: {{output: output_whole, summary: summary_whole,
               single_distribution_summary: single_whole}}
  - name: bins
    classname: VostrelPointToPointBinnedEvaluator
    module_name: rail.vostrel
    nprocess: {processes}
    aliases: {{output: output_bins, summary: summary_bins,
               single_distribution_summary: single_bins}}
inputs:
  input: estimates.hdf5
  truth: truth.hdf5
config: config.yml
output_dir: {folder}
log_dir: {folder}
resume: false
"""


def run(command):
    """Run a command that may be one of this environment."""
    path = f"{pathlib.Path(sys.executable).parent}:{os.environ['PATH']}"
    environment = {**os.environ, "PATH": path}
    subprocess.run(command, shell=True, check=True, env=environment, timeout=300)


def run_ceci(processes, chunk_size):
    """The tables that ceci's pipeline writes."""
    folder = f"{processes}-{chunk_size}"
    pathlib.Path("pipeline.yml").write_text(PIPELINE.format(processes=processes, folder=folder))
    options = {"chunk_size": chunk_size, "hdf5_groupname": "photometry"}
    config = {name: {"name": name, **options} for name in ("whole", "bins")}
    pathlib.Path("config.yml").write_text(yaml.dump(config))
    run("ceci pipeline.yml")
    return {path.name: path.read_bytes() for path in pathlib.Path(folder).glob("*.hdf5")}


def test_a_pipeline_of_ceci(rng):
    truth, estimate = redshifts(rng, 5000)
    estimate[7] = np.nan
    write_files(truth, estimate)
    expected = run_ceci(1, 1000)
    assert sorted(expected) == [
        f"{tag}_{stage}.hdf5" for tag in ("output", "summary") for stage in ("bins", "whole")
    ]
    # With a million rows in a chunk there is one chunk, and two processes of three have no rows.
    for processes, chunk_size in ((2, 1000), (3, 777), (3, 10**6)):
        assert run_ceci(processes, chunk_size) == expected, (processes, chunk_size)


def mpirun(processes, *command):
    """What these processes of Python print."""
    options = ["--allow-run-as-root", "--oversubscribe", "-n", processes, sys.executable]
    command = [str(part) for part in ["mpirun", *options, *command]]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    return done.stdout


#: Puts our stages in the place of RAIL's, as a plugin of pytest.
IN_THEIR_PLACE = """
from rail import vostrel
from rail.evaluation import point_to_point_evaluator as theirs

theirs.PointToPointEvaluator = vostrel.VostrelPointToPointEvaluator
theirs.PointToPointBinnedEvaluator = vostrel.VostrelPointToPointBinnedEvaluator
"""


def test_rails_own_tests_of_its_stages(rng, folder):
    # scripts/check puts them there: they come with RAIL's sources alone.
    shutil.copytree(pathlib.Path(sys.prefix) / "rail-tests", "tests")
    pathlib.Path("in_their_place.py").write_text(IN_THEIR_PLACE)
    # They download this file, unless it is there.
    file = find_rail_file("examples_data/testdata/test_dc2_validation_9816.hdf5")
    truth = tables_io.read(file)["photometry"]["redshift"]
    ensemble(truth + 0.03 * rng.standard_normal(len(truth))).write_to("output_fzboost.hdf5")
    done = subprocess.run(
        [sys.executable, "-m", "pytest", "-p", "in_their_place", "tests/evaluation", "-k",
         "point_to_point"],
        env={**os.environ, "PYTHONPATH": f"{folder}:{os.environ['PYTHONPATH']}"},
        capture_output=True, text=True,
    )
    assert "2 passed" in done.stdout, done.stdout


def test_faster_than_rails_parallel_mode(rng):
    truth, estimate = redshifts(rng, 2_000_000)
    handles = write_files(truth, estimate)
    options = {"chunk_size": 100_000, "metrics": [*METRICS], "hdf5_groupname": "photometry"}
    times = {PointToPointEvaluator: [], VostrelPointToPointEvaluator: []}
    tables = {}
    for stage_class in [*times] * 2:
        stage = stage_class.make_stage(name=stage_class.__name__, **options)
        start = time.process_time()
        tables[stage_class] = stage.evaluate(*handles)["summary"]()
        times[stage_class].append(time.process_time() - start)
    theirs, ours = (min(seconds) for seconds in times.values())
    print(f"RAIL: {theirs:.2f} s, here: {ours:.2f} s")
    assert ours < theirs
    for name, metric in METRICS.items():
        expected = metric.evaluate(estimate, truth)
        assert same_bits(tables[VostrelPointToPointEvaluator][name], [expected]), name


#: getrusage would tell the peak of the process that started this one, too.
MEMORY = """
import re
from rail.core.data import QPHandle, TableHandle
from vostrel.rail import VostrelPointToPointEvaluator

stage = VostrelPointToPointEvaluator.make_stage(name="large", hdf5_groupname="photometry")
tables = stage.evaluate(QPHandle("input", path="large_estimates.hdf5"),
                        TableHandle("truth", path="large_truth.hdf5"))
with open("/proc/self/status") as status:
    peak = re.search(r"VmHWM:\\s*(\\d+) kB", status.read())
print(tables["summary"]()["n"][0], peak[1])
"""


def repeat_rows(file, large, size):
    """Write a file with the rows of another again and again, up to this number."""
    with h5py.File(file) as source, h5py.File(large, "w") as target:

        def copy(name, rows):
            if not isinstance(rows, h5py.Dataset):
                return
            if name.startswith("meta"):
                target[name] = rows[:]
                return
            repeated = target.create_dataset(name, (size, *rows.shape[1:]), rows.dtype)
            # The distributions are never read.
            for start in () if name.startswith("data") else range(0, size, len(rows)):
                repeated[start:start + len(rows)] = rows[:]

        source.visititems(copy)


def test_memory_does_not_grow_with_the_file(rng):
    """A column has 80 MB, or 800 MB, and is not kept between the passes."""
    size = 10**8 if LONG else 10**7
    write_files(*redshifts(rng, 10**6))
    repeat_rows("estimates.hdf5", "large_estimates.hdf5", size)
    repeat_rows("truth.hdf5", "large_truth.hdf5", size)
    done = subprocess.run([sys.executable, "-c", MEMORY], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    n, peak = map(int, done.stdout.split()[-2:])
    print(f"{n} objects: {peak >> 10} MiB")
    assert n == size and peak < 500 << 10  # KiB


@pytest.mark.parametrize("failing", [0, 1])
def test_a_process_that_fails_ends_all(failing, rng):
    """Nobody waits for it for ever, even if another process has no rows."""
    write_files(*redshifts(rng, 1500))
    script = pathlib.Path(__file__).with_name("failing_stage.py")
    lines = mpirun(3, script, failing).splitlines()
    assert len(lines) == 5
    expected = [f"RuntimeError: rank {failing} failed: OSError: the disk is gone"] * 3
    expected[failing] = "OSError: the disk is gone"
    for name, errors in map(json.loads, lines):
        writes = name in ("initialize_write", "write_chunk")  # the first process does, for all
        assert errors == ([None] * 3 if writes and failing else expected), name


def test_the_document(monkeypatch):
    monkeypatch.setenv("PATH", f"{pathlib.Path(sys.executable).parent}:{os.environ['PATH']}")
    *_, (_, names) = follow(DOCUMENT)
    expected = vostrel.chunked_statistics([(names["z_spec"], names["z_mode"])])
    assert names["summary"]["norm_nmad"] == expected.norm.nmad
    assert tables_io.read("tables/summary_point.hdf5")["norm_nmad"] == expected.norm.nmad
