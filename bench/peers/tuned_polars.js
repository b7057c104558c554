// tuned_polars.js TABLE COL1 COL2: the 22 statistics with polars (nodejs-polars), tuned by hand.
//
// Tried, slowest first: one lazy query from scanCSV to the 22 numbers, with the
// streaming and with the in-memory engine; readCSV, residuals, then one query
// for means and medians and one for the counts; this one: the same with the
// columns made contiguous (rechunk), on which the median selects instead of
// sorting.  Lazy selects run their expressions on all cores, eager ones one by
// one.  Counting in a filtered column was no faster than counting in the whole.
'use strict';
const pl = require('nodejs-polars');
const sixDigits = require('./six_digits.js');

const [, , table, col1, col2] = process.argv;
const names = ['column_' + col1, 'column_' + col2];
const [x, y] = names.map((name) => pl.col(name));

// readCSV is a little faster than scanCSV but takes only names that end in .csv.
const rows = table.endsWith('.csv')
  ? pl.readCSV(table, { hasHeader: false, columns: names, rechunk: true }).lazy()
  : pl.scanCSV(table, { hasHeader: false, rechunk: true });
const residuals = rows
  .select(x.minus(y).alias('delta'), x.minus(y).div(x.plus(1)).alias('norm'))
  .collectSync();
const n = residuals.height;

// One query over both residuals; `f` gives the expressions for one of them.
function query(f) {
  const expressions = ['delta', 'norm'].map((name, i) => f(pl.col(name), i));
  const width = expressions[0].length;
  const row = residuals.lazy()
    .select(...expressions.flat().map((e, i) => e.alias('r' + i)))
    .collectSync().row(0);
  return [row.slice(0, width), row.slice(width)];
}

const moments = query((d) => [
  d.minus(d.median()).abs().median(),
  d.abs().median(),
  d.mean(),
  d.std(), // the sample's: made the population's below
]);
const sigmas = moments.map((m) => m[3] * Math.sqrt((n - 1) / n));
const counts = query((d, i) =>
  [0.15, sigmas[i], 2 * sigmas[i], 3 * sigmas[i], 4 * sigmas[i]].map((cut) => d.abs().gt(cut).sum()));

for (const i of [0, 1]) {
  const [madDelta, mad, bias] = moments[i];
  const values = [bias, sigmas[i], Math.hypot(bias, sigmas[i]), mad, 1.4826 * mad, madDelta,
    ...counts[i].map((count) => (100 * count) / n)];
  console.log(values.map(sixDigits).join('\n'));
}
