// typed_polars.js TABLE COL1 COL2: the 22 statistics as one would type them with polars
// (nodejs-polars), for comparison with peer_polars.js, which was tuned.
'use strict';
const pl = require('nodejs-polars');
const sixDigits = require('./six_digits.js');

const [, , table, col1, col2] = process.argv;
const names = ['column_' + col1, 'column_' + col2];
const rows = pl.readCSV(table, { hasHeader: false, columns: names });
const x = rows.getColumn(names[0]);
const delta = x.minus(rows.getColumn(names[1]));
const n = rows.height;
for (const d of [delta, delta.div(x.plus(1))]) {
  const mad = d.abs().median();
  const sigma = d.std() * Math.sqrt((n - 1) / n);
  const beyond = (bound) => (100 * d.abs().gt(bound).sum()) / n;
  const values = [d.mean(), sigma, Math.sqrt(d.mul(d).mean()), mad, 1.4826 * mad,
    d.minus(d.median()).abs().median(), ...[0.15, sigma, 2 * sigma, 3 * sigma, 4 * sigma].map(beyond)];
  console.log(values.map(sixDigits).join('\n'));
}
