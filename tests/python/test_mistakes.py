"""Typical mistakes: what is called, the type of the error, and words of its message.

The message is short, names the argument, and never shows the values of an array.
"""

import builtins
import re

import numpy as np
import pandas as pd  # noqa: F401
import pytest
import vostrel
from astropy import units as u  # noqa: F401
from astropy.table import Column, MaskedColumn, Table  # noqa: F401
from data_sets import redshifts

z, p = redshifts(np.random.default_rng(1), 1000)
nan, inf = np.array(p), np.array(p)
nan[[17, 400]], inf[3] = np.nan, np.inf
text = np.array(["0.5"] * 1000)
table = Table({"z_spec": z, "z_phot": p, "flag": p > 1})
frame = table.to_pandas()
records = table.as_array()
two = z.reshape(500, 2)
integers = np.zeros(1000, int)
none = np.zeros(1000, bool)
masked = np.ma.array(none, mask=none | True)
labels = np.arange(1000) % 7
LONG = "a name that goes on and on " * 20

POINT = [
    # What is not a column of numbers.
    ("point_statistics(z, p[:999])", ValueError,
     "reference and estimate differ in length: 1000 and"),
    ("point_statistics(z, [])", ValueError, "reference and estimate differ in length: 1000 and 0"),
    ("point_statistics([], [])", ValueError, "there are no objects"),
    ("point_statistics(z, 1.0)", ValueError, "estimate must have one dimension, but has 0"),
    ("point_statistics(two, p)", ValueError, r"reference must have one dimension.*\(500, 2\)"),
    ("point_statistics([[1.0, 2.0]], [1.0])", ValueError, "reference must have one dimension"),
    ("point_statistics(z, None)", TypeError, "estimate must hold real numbers, not one NoneType"),
    ("point_statistics(z, {1.0})", TypeError, "estimate must hold real numbers, not one set"),
    ("point_statistics(z, iter(p))", TypeError, "estimate must hold real numbers, not one"),
    ("point_statistics(z, (x for x in p))", TypeError,
     "estimate must .* not one generator; pass a list"),
    ("point_statistics(z, map(float, p))", TypeError, "estimate must hold .* not one map"),
    ("point_statistics(z, p + 1j)", TypeError, "estimate must .* not complex numbers"),
    ("point_statistics(z, text)", TypeError, "estimate must .* not text"),
    ("point_statistics(z, text.tolist())", TypeError, "estimate must hold real numbers, not text"),
    ("point_statistics(z, [0.5] * 999 + ['1'])", TypeError, "estimate must hold .* not text"),
    ("point_statistics([1.0], [b'1'])", TypeError, "estimate must hold real numbers, not text"),
    ("point_statistics(z, 'z_phot')", TypeError, "estimate must hold real numbers, not text"),
    ("point_statistics(z, 'z_phot.npy')", TypeError, "estimate must hold real numbers, not text"),
    ("point_statistics(z, z.astype('M8[s]'))", TypeError, "estimate must .* not times"),
    ("point_statistics(z, z.astype('m8[s]'))", TypeError, "estimate must .* not time spans"),
    ("point_statistics(z, p.astype(object))", TypeError, "estimate must .* not Python objects"),
    ("point_statistics(z, [None] * 1000)", TypeError, "estimate must .* not Python objects"),
    ("point_statistics([1.0], [10**400])", TypeError,
     "estimate can't be made into an array of num"),
    ("point_statistics([1.0], [[1.0], [1.0, 2]])", TypeError, "estimate "),
    ("point_statistics(z, pd.Series(text))", TypeError, "estimate must hold real numbers"),
    ("point_statistics(z, pd.Series(text, dtype='string'))", TypeError, "estimate must hold real"),
    ("point_statistics(z, pd.Series(text, dtype='category'))", TypeError, "estimate must hold"),
    ("point_statistics(z, vostrel.point_statistics)", TypeError, "estimate must hold real numbers"),
    ("point_statistics(z, np.float64)", TypeError, "estimate must hold real numbers"),
    # Tables.
    ("point_statistics(table, p)", TypeError, r"reference is a table .Table. .* table\['z_spec'\]"),
    ("point_statistics(z, frame)", TypeError,
     r"estimate is a table .DataFrame. .* table\['z_spec'\]"),
    ("point_statistics(z, records)", TypeError,
     r"estimate is a table .ndarray. .* table\['z_spec'\]"),
    ("point_statistics(z, dict(table))", TypeError, "'z_spec', 'z_phot', 'flag': pass one"),
    ("point_statistics(z, table[['z_phot']])", TypeError, r"table\['z_phot'\]"),
    ("point_statistics(z, pd.DataFrame(np.zeros((1000, 50))))", TypeError,
     r"estimate .* 0, 1, 2, \.\.\."),
    ("point_statistics(z, {LONG: p, 'b': p})", TypeError, "estimate is a table .dict."),
    ("point_statistics(z, p, mask=table)", TypeError, "mask is a table .Table."),
    # Units.
    ("point_statistics(z * u.m, p)", TypeError, "reference has the unit 'm', but must be dim"),
    ("point_statistics(z * u.percent, p)", TypeError, "reference has the unit '%'"),
    ("point_statistics(z, Column(p, unit='km/s'))", TypeError, "estimate has the unit 'km / s'"),
    ("point_statistics(z, MaskedColumn(p, unit='mag'))", TypeError, "estimate has the unit 'mag'"),
    # NaN.
    ("point_statistics(z, nan)", ValueError,
     r"2 of 1000 .* \(2 in estimate, the first at index 17\).*'omit'"),
    ("point_statistics([1] * 70_000, [1] * 66_000 + [np.nan] * 4000)", ValueError,
     "4000 in estimate, the first at index 66000"),
    ("point_statistics(nan, nan)", ValueError,
     "2 in reference, the first at index 17; 2 in estimate"),
    ("point_statistics(z, nan, mask=np.arange(1000) == 17)", ValueError,
     "1 in estimate.* at index 400"),
    ("point_statistics(z, nan.tolist())", ValueError, "2 in estimate, the first at index 17"),
    ("point_statistics(z, nan.astype('>f4'))", ValueError, "2 in estimate, the first at index 17"),
    ("point_statistics(z, pd.Series(nan))", ValueError, "2 in estimate, the first at index 17"),
    ("point_statistics([np.nan], [1.0], nan_policy='omit')", ValueError, "no objects: 1 with NaN"),
    # mask.
    ("point_statistics(z, p, none)", TypeError, "takes 2 positional arguments but 3"),
    ("point_statistics(z, p, mask=integers)", TypeError, r"mask .* integers .*mask.astype\(bool\)"),
    ("point_statistics(z, p, mask=integers.tolist())", TypeError, r"mask must .*astype\(bool\)"),
    ("point_statistics(z, p, mask=p)", TypeError,
     "mask must hold True and False, not numbers .dtype fl"),
    ("point_statistics(z, p, mask=text)", TypeError, "mask must hold True and False, not text"),
    ("point_statistics(z, p, mask=np.flatnonzero(p > 1))", TypeError,
     "mask must hold True and False"),
    ("point_statistics(z, p, mask=none[1:])", ValueError,
     "mask has 999 entries, but reference has 1000"),
    ("point_statistics(z, p, mask=True)", ValueError, "mask must have one dimension"),
    ("point_statistics(z, p, mask=none.reshape(500, 2))", ValueError,
     "mask must have one dimension"),
    ("point_statistics(z, p, mask=~none)", ValueError, "there are no objects: 1000 masked"),
    ("point_statistics(z, p, mask=masked)", ValueError, "mask has masked entries"),
    ("point_statistics([1], [1], mask=pd.Series([None], dtype='boolean'))", ValueError,
     "mask has mask"),
    ("point_statistics(z, p, mask='flag')", TypeError, "mask must hold True and False, not text"),
    ("point_statistics(z, p, mask=lambda x: x)", TypeError, "mask must hold True and False"),
    # nan_policy.
    ("point_statistics(z, p, nan_policy='ignore')", ValueError,
     "nan_policy must be 'raise', 'omit' or"),
    ("point_statistics(z, p, nan_policy='OMIT')", ValueError, "nan_policy must be .* not 'OMIT'"),
    ("point_statistics(z, p, nan_policy=None)", TypeError, "nan_policy must be .* not None"),
    ("point_statistics(z, p, nan_policy=True)", TypeError, "nan_policy must be .* not True"),
    ("point_statistics(z, p, nan_policy=z)", TypeError,
     r"nan_policy .* not ndarray of shape \(1000,\)"),
    ("point_statistics(z, p, nan_policy=LONG)", ValueError, "nan_policy must be .* not one str"),
    ("point_statistics(z, p, nan='omit')", TypeError, "unexpected keyword argument 'nan'"),
    ("point_statistics(z)", TypeError, "missing 1 required positional argument: 'estimate'"),
]

BINS = [
    ("binned_statistics(z, p, p[1:])", ValueError, "reference and by differ in length"),
    ("binned_statistics(z, p, text)", TypeError, "by must hold real numbers, not text"),
    ("binned_statistics(z, p, 10)", ValueError, "by must have one dimension, but has 0"),
    ("binned_statistics(z, p, frame)", TypeError, "by is a table"),
    ("binned_statistics(z, p, nan)", ValueError, "2 in by, the first at index 17"),
    ("binned_statistics(z, p, z, 10)", TypeError, "takes from 2 to 3 positional arguments but 4"),
    ("binned_statistics(z, p, bins=[2, 1])", ValueError,
     "bins must not decrease.*is 2, and the next 1"),
    ("binned_statistics(z, p, bins=np.linspace(2, 0, 1000))", ValueError, "bins must not decrease"),
    ("binned_statistics(z, p, bins=[1])", ValueError, "bins must have two edges or more, not 1"),
    ("binned_statistics(z, p, bins=[])", ValueError, "bins must have two edges or more, not 0"),
    ("binned_statistics(z, p, bins=[1, np.nan])", ValueError, "bins must have no .* no NaN"),
    ("binned_statistics(z, p, bins=np.ma.array([1, 2], mask=[0, 1]))", ValueError,
     "bins must have no"),
    ("binned_statistics(z, p, bins=[[1, 2], [3, 4]])", ValueError, "bins must have one dimension"),
    ("binned_statistics(z, p, bins=0)", ValueError, "bins must be at least 1, not 0"),
    ("binned_statistics(z, p, bins=-3)", ValueError, "bins must be at least 1, not -3"),
    ("binned_statistics(z, p, bins=10**9)", ValueError, "bins must be at most 100000, not 1"),
    ("binned_statistics(z, p, bins=np.arange(200_000))", ValueError,
     "bins must be at most 100000, not 199999"),
    ("binned_statistics(z, p, bins=2.5)", TypeError, "bins must be an integer, not 2.5"),
    ("binned_statistics(z, p, bins=True)", TypeError, "bins must be an integer, not True"),
    ("binned_statistics(z, p, bins='auto')", TypeError,
     "bins must be a number, edges or .* 'auto'"),
    ("binned_statistics(z, p, bins=None)", TypeError,
     "bins must be a number, edges or .* not None"),
    ("binned_statistics(z, p, bins={0, 1})", TypeError, "bins must be a number, edges or"),
    ("binned_statistics(z, p, bins=('quantile', 3))", ValueError,
     "bins must be a number, edges or"),
    ("binned_statistics(z, p, bins=('count', 0))", ValueError,
     "bins=.'count', k.* at least 1, not 0"),
    ("binned_statistics(z, p, bins=('count', 1.5))", TypeError,
     "bins=.* must be an integer, not 1.5"),
    ("binned_statistics(z, p, bins=('count', 3, 4))", TypeError, "bins must hold real numbers"),
    ("binned_statistics(z, p, bins=['a', 'b'])", TypeError,
     "bins must hold real numbers, not text"),
    ("binned_statistics(z, p, bins=[0, 1] * u.mag)", TypeError, "bins has the unit 'mag'"),
    ("binned_statistics(z, p, z * u.mag, bins=[0, 1] * u.s)", TypeError,
     "bins .* 's', .* into .* 'mag'"),
    ("binned_statistics(z, p, z * u.mag, range=(0, 1) * u.s)", TypeError, "range has the unit 's'"),
    ("binned_statistics(z, p, range=(2, 1))", ValueError,
     "range must go from the lower to the upper"),
    ("binned_statistics(z, p, range=(0, np.inf))", ValueError, "range must be finite"),
    ("binned_statistics(z, p, range=(np.nan, 1))", ValueError, "range must be finite"),
    ("binned_statistics(z, p, range=(1, 2, 3))", TypeError, r"range must be a pair .* \(1, 2, 3\)"),
    ("binned_statistics(z, p, range='ab')", TypeError, "range must be a pair of numbers, not 'ab'"),
    ("binned_statistics(z, p, range=5)", TypeError, "range must be a pair of numbers, not 5"),
    ("binned_statistics(z, p, range=z)", TypeError, r"range must be a pair .* shape \(1000,\)"),
    ("binned_statistics(z, p, range={0: 1, 1: 2})", TypeError, "range must be a pair of numbers"),
    ("binned_statistics(z, p, bins=[0, 1], range=(0, 1))", ValueError,
     "range needs a number of"),
    ("binned_statistics(z, p, bins=('count', 3), range=(0, 1))", ValueError,
     "range needs a num"),
    ("binned_statistics(inf, p)", ValueError, "infinite values have no bins .* pass range"),
    ("binned_statistics([-1e308, 1e308], [1, 1])", ValueError,
     "range from -1e.308 to 1e.308 is too"),
    ("binned_statistics(nan[17:18], p[:1], nan_policy='propagate')", ValueError, "pass range"),
    ("binned_statistics(z, p, uncertainties='yes')", TypeError,
     "uncertainties must be True or False"),
    ("binned_statistics(z, p, uncertainties=0.95)", TypeError, "uncertainties must be .* not 0.95"),
    ("binned_statistics(z, p)[20]", IndexError, "there is no bin 20: there are 10"),
    ("binned_statistics(z, p)[1.5]", TypeError, "bins are chosen by a number, a slice or"),
    ("binned_statistics(z, p)[z]", TypeError, "bins are chosen by .* not ndarray"),
    ("binned_statistics(z, p)['nmad']", KeyError, "no column 'nmad': did you mean .*'norm_nmad'"),
    ("binned_statistics(z, p)[::2]", ValueError, "step of a slice of bins must be 1, not 2"),
]

ERRORS = [
    ("uncertainties(z, p, 0.95)", TypeError, "takes 2 positional arguments but 3"),
    *[
        (f"{function}(z, p, confidence={value})", error, "confidence must be a number .*" + words)
        for function in ("uncertainties", "bootstrap")
        for value, error, words in [
            ("95", ValueError, "not 95: did you mean 0.95"),
            ("68.3", ValueError, "not 68.3: did you mean 0.683"),
            ("'0.95'", TypeError, "not '0.95': did you mean 0.95"),
            ("'95%'", TypeError, "not '95%'"),
            ("None", TypeError, "not None"),
            ("1", ValueError, "not 1$"),
            ("0", ValueError, "not 0$"),
            ("-0.5", ValueError, "not -0.5$"),
            ("float('nan')", ValueError, "not nan$"),
            ("True", TypeError, "not True"),
            ("z", TypeError, r"not ndarray of shape \(1000,\)"),
            ("[0.68, 0.95]", TypeError, r"not \[0.68, 0.95\]"),
        ]
    ],
    ("uncertainties(z, nan)", ValueError, "2 in estimate, the first at index 17"),
    ("lsst_metrics(z, nan)", ValueError, "2 in estimate, the first at index 17"),
    ("lsst_metrics(z, frame)", TypeError, "estimate is a table"),
    ("bootstrap(z, p, 500)", TypeError, "takes 2 positional arguments but 3"),
    ("bootstrap(z, nan)", ValueError, "2 in estimate, the first at index 17"),
    ("bootstrap(z, p, resamples=1)", ValueError, "resamples must be at least 2, not 1"),
    ("bootstrap(z, p, resamples=10.5)", TypeError, "resamples must be an integer, not 10.5"),
    ("bootstrap(z, p, resamples='many')", TypeError, "resamples must be an integer, not 'many'"),
    ("bootstrap(z, p, resamples=None)", TypeError, "resamples must be an integer, not None"),
    ("bootstrap(z, p, seed=-1)", ValueError, "seed must be at least 0, not -1"),
    ("bootstrap(z, p, seed=2**64)", ValueError, "seed must be at most"),
    ("bootstrap(z, p, seed=10**400)", ValueError, "seed must be at most .* not one int"),
    ("bootstrap(z, p, seed='x')", TypeError, "seed must be an integer, not 'x'"),
    ("bootstrap(z, p, seed=np.random.default_rng(1))", TypeError, "seed must be an integer"),
    ("bootstrap(z, p, interval='BCa')", ValueError, "interval must be 'auto', .* not 'BCa'"),
    ("bootstrap(z, p, interval=z)", TypeError, r"interval must be .* not ndarray of shape"),
    ("bootstrap(z, p, workers=0)", ValueError, "workers must be a number of threads, or -1"),
    ("bootstrap(z, p, workers=-2)", ValueError, "workers must be at least -1, not -2"),
    ("bootstrap(z, p, workers=1.5)", TypeError, "workers must be an integer, not 1.5"),
    ("bootstrap(z, p, workers='all')", TypeError, "workers must be an integer, not 'all'"),
    ("bootstrap(z, p, progress='yes')", TypeError, "progress must be True, False or a function"),
    ("bootstrap(z, p, progress=None)", TypeError, "progress must be True, .* not None"),
    ("bootstrap(z, p, progress=1)", TypeError, "progress must be True, .* not 1"),
    ("bootstrap(z, p, groups=labels[1:])", ValueError, "groups has 999 entries, but reference has"),
    ("bootstrap(z, p, groups=0 * labels)", ValueError,
     "one group, 0; .* needs two groups at least"),
    ("bootstrap(z, p, groups=[LONG] * 1000)", ValueError, "all objects are in one group, one str"),
    ("bootstrap(z, p, groups=7)", ValueError, "groups must have one dimension"),
    ("bootstrap(z, p, groups=two)", ValueError, "groups must have one dimension"),
    ("bootstrap(z, p, groups=nan)", ValueError, "groups has missing labels"),
    ("bootstrap(z, p, groups=[None] * 1000)", ValueError, "groups has missing labels"),
    ("bootstrap(z, p, groups=['a', 1.0, None, 3] * 250)", ValueError, "groups has missing labels"),
    ("bootstrap(z, p, groups=np.array(['a', 1] * 500, object))", TypeError,
     "groups must hold labels"),
    ("bootstrap(z, p, groups=frame)", (TypeError, ValueError), "groups"),
    ("bootstrap_difference(z, p, p)", TypeError,
     r"bootstrap_difference\(reference, \{'A': a, 'B': b\}"),
    ("bootstrap_difference(z, p)", TypeError,
     r"estimates must be .* not ndarray of shape \(1000,\)"),
    ("bootstrap_difference(z, [p, p])", TypeError, "estimates must be a mapping .* not list of 2"),
    ("bootstrap_difference(z, pd.Series(p))", TypeError,
     "estimates must be .* not Series of shape"),
    ("bootstrap_difference(z, {})", ValueError, "two estimates or more, not 0"),
    ("bootstrap_difference(z, {'A': p})", ValueError, "two estimates or more, not 1"),
    ("bootstrap_difference(z, {1: p, '1': p})", ValueError, "estimates has two of the same name"),
    ("bootstrap_difference(z, {'A': p, 'B': p[1:]})", ValueError,
     "reference and estimate 'B' differ in"),
    ("bootstrap_difference(z, {'A': p, 'B': text})", TypeError,
     "estimate 'B' must hold real numbers"),
    ("bootstrap_difference(z, {'A': p, 'B': nan})", ValueError,
     "2 in estimate 'B', the first at index 17"),
    ("bootstrap_difference(z, {LONG: nan, LONG + '!': nan[1:]})", ValueError,
     "reference and estimate 'a"),
    ("bootstrap_difference({'A': p}, z)", TypeError,
     "estimates must be .* come after the reference"),
    ("bootstrap_difference(z, {'A': p, 'B': z}, resamples=9)['C']", KeyError,
     "choose one estimate"),
    ("bootstrap_difference(z, {'A': p, 'B': z}, resamples=9)['A', 'B', 'A']", KeyError,
     "choose one"),
    ("bootstrap_difference(z, {LONG: p, 'B': z}, resamples=9)['C']", KeyError,
     "choose one estimate"),
    ("bootstrap_difference(z, {'A': p, 'B': z, 'C': p}, resamples=9).norm", AttributeError,
     "choose two"),
]

CHUNKS = [
    ("chunked_statistics((z, p))", TypeError,
     r"a chunk must be a tuple \(reference, estimate\[, mask"),
    ("chunked_statistics([z, p])", TypeError, "a chunk must be .* not ndarray of shape"),
    ("chunked_statistics([(z,)])", TypeError, "a chunk must be a tuple .* not tuple of 1"),
    ("chunked_statistics([(z, p, none, 4)])", TypeError, "a chunk must be .* not tuple of 4"),
    ("chunked_statistics([frame])", TypeError, "a chunk must be a tuple .* not DataFrame of"),
    ("chunked_statistics(frame)", TypeError, "a chunk must be a tuple .* not 'z_spec'"),
    ("chunked_statistics('file.npy')", TypeError, "a chunk must be a tuple .* not 'f'"),
    ("chunked_statistics(5)", TypeError, "chunks must be an iterable .* not int"),
    ("chunked_statistics(lambda: 5)", TypeError,
     "chunks must be a function that returns an iterable"),
    ("chunked_statistics([])", ValueError, "there are no objects"),
    ("chunked_statistics(c for c in [(z, p)])", TypeError,
     r"chunks can be read only once \(gen.*def ch"),
    ("chunked_statistics(zip([z], [p]))", TypeError, r"chunks can be read only once \(zip\)"),
    ("chunked_statistics(used_up())", ValueError,
     "chunks is used up after the first pass.*def chunks"),
    ("chunked_statistics([(z, p[1:])])", ValueError, "reference and estimate differ in length"),
    ("chunked_statistics([(z, p, integers)])", TypeError, r"mask .*mask.astype\(bool\)"),
    ("chunked_statistics([(z, nan)])", ValueError,
     r"\(in a chunk: 2 in estimate, the first at index 17\); .*leave them out, or mask"),
    ("chunked_statistics([(z, p)], nan_policy='propagate')", ValueError,
     "nan_policy .* 'raise' or 'omit'"),
    ("chunked_statistics([(z, p)], nan_policy=None)", TypeError, "nan_policy of chunks must be"),
    ("chunked_statistics([(z, p)], 'omit')", TypeError, "takes 1 positional argument but 2"),
    ("chunked_statistics([(z, p)], progress='yes')", TypeError,
     "progress must be True, False or a func"),
    ("chunked_binned_statistics([(z, p)])", TypeError, "required keyword-only argument: 'bins'"),
    ("chunked_binned_statistics([(z, p)], bins=10)", ValueError,
     "chunks need fixed bins: .* and range"),
    ("chunked_binned_statistics([(z, p)], bins=('count', 3))", ValueError,
     "chunks need fixed bins"),
    ("chunked_binned_statistics([(z, p)], bins=[0, 1], range=(0, 1))", ValueError,
     "range needs a number"),
    ("chunked_binned_statistics([(z, p)], bins=[1, 0])", ValueError, "bins must not decrease"),
    ("chunked_binned_statistics([5], bins=[0, 1])", TypeError, "a chunk must be .* by, mask"),
    ("chunked_binned_statistics([(z, p, text)], bins=[0, 1])", TypeError,
     "by must hold real numbers"),
    ("Accumulator('omit')", TypeError, "takes 1 positional argument but 2"),
    ("Accumulator(nan_policy='propagate')", ValueError,
     "nan_policy of chunks must be 'raise' or 'omit'"),
    ("Accumulator().result()", RuntimeError, "there is no result yet: another pass is needed"),
    ("Accumulator().end_pass()", ValueError, "there are no objects"),
    ("Accumulator().merge(5)", TypeError, "Accumulator can't be merged with int"),
    ("Accumulator().merge(Accumulator(nan_policy='omit'))", ValueError, "must have one nan_policy"),
    ("read_report(0)", TypeError, "path must be text or a path, not 0"),
    ("read_report('none.txt')", FileNotFoundError, "none.txt"),
    ("dask.point_statistics(z, p)", TypeError, "reference, estimate are in memory already"),
    ("dask.point_statistics(ones, p[1:])", ValueError, "reference and estimate differ in length"),
    ("dask.point_statistics(ones, frame)", TypeError,
     "estimate must be a one-dimensional dask array"),
    ("dask.point_statistics(ones, ones, nan_policy='propagate')", ValueError,
     "nan_policy of chunks"),
    ("dask.point_statistics(ones, ones.reshape(500, 2))", ValueError,
     "estimate must have one dimension"),
    ("dask.binned_statistics(ones, ones, bins=5)", ValueError, "chunks need fixed bins"),
    ("point_statistics(ones, p)", TypeError,
     "reference is a lazy dask coll.*vostrel.dask.point_stat"),
    ("point_statistics(z, p, mask=ones > 1)", TypeError, "mask is a lazy dask collection"),
    ("point_statistics(spark, p)", TypeError, "reference is a lazy collection of pyspark.*chunked"),
    ("plots", AttributeError, "has no attribute 'plots'"),
]


def used_up():
    """A function that returns the same iterator in each pass."""
    iterator = iter([(np.tile(z, 10), np.tile(p, 10))])
    return lambda: iterator


class Vostrel(dict):
    """The names of this module and of vostrel."""

    def __missing__(self, name):
        return getattr(builtins, name) if hasattr(builtins, name) else getattr(vostrel, name)


@pytest.mark.parametrize("call, error, words", POINT + BINS + ERRORS + CHUNKS)
def test_mistake(call, error, words):
    names = Vostrel(globals(), spark=type("Column", (), {"__module__": "pyspark.sql"})())
    if "dask" in call + words:
        names["ones"] = pytest.importorskip("dask.array").ones(1000)
    with pytest.raises(error) as raised:
        eval(call, names)
    message = str(raised.value)
    assert re.search(words, message, re.DOTALL)
    assert len(message) <= 300
