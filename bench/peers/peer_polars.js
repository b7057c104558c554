// peer_polars.js TABLE COL1 COL2: the 22 statistics as one would type them with polars
// (nodejs-polars), one query for all, for comparison with tuned_polars.js.
'use strict';
const pl = require('nodejs-polars');
const sixDigits = require('./six_digits.js');

const [, , table, col1, col2] = process.argv;
const [x, y] = ['column_' + col1, 'column_' + col2].map((name) => pl.col(name));

const rows = pl.scanCSV(table, { hasHeader: false });
const statistics = (d) => {
  const sigma = d.minus(d.mean()).pow(2).mean().pow(0.5);
  const beyond = (bound) => d.abs().gt(bound).mean().multiplyBy(100);
  const mad = d.abs().median();
  return [d.mean(), sigma, d.pow(2).mean().pow(0.5), mad, mad.multiplyBy(1.4826),
    d.minus(d.median()).abs().median(), beyond(pl.lit(0.15)),
    ...[1, 2, 3, 4].map((k) => beyond(sigma.multiplyBy(k)))];
};
const delta = x.minus(y);
const expressions = [delta, delta.div(x.plus(1))].flatMap(statistics);
const result = rows.select(...expressions.map((e, i) => e.alias('r' + i))).collectSync();
console.log(result.row(0).map(sixDigits).join('\n'));
