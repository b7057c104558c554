// peer_duckdb.js TABLE COL1 COL2: the 22 statistics with DuckDB (@duckdb/node-api).
//
// read_csv with all columns named and no sniffing reads on all cores; the two
// residuals go to a table in memory.  Tried for the rest, slowest first: one
// query for both residuals (each median is ended by one core); a union of
// queries, one a median; sorted tables; two connections at once, one a residual,
// with all cores each; this one: two connections with one thread each, which
// leaves out the merging of the partial states.  median, quantile_cont and
// quantile_disc take the same time; mad() beats a query within a query.
'use strict';
const fs = require('fs');
const { DuckDBInstance } = require('@duckdb/node-api');
const sixDigits = require('./six_digits.js');

const [, , table, col1, col2] = process.argv;

function fieldCount(name) {
  const file = fs.openSync(name);
  const start = Buffer.alloc(1 << 16);
  const size = fs.readSync(file, start, 0, start.length, 0);
  fs.closeSync(file);
  return start.toString('latin1', 0, size).split('\n', 1)[0].split(',').length;
}

async function statistics(connection, d) {
  const row = async (sql) => (await connection.runAndReadAll(sql)).getRows()[0].map(Number);
  const [n, bias, sigma, mad, madDelta] = await row(
    `select count(*), avg(${d}), stddev_pop(${d}), median(abs(${d})), mad(${d}) from residuals`);
  const cuts = [0.15, sigma, 2 * sigma, 3 * sigma, 4 * sigma];
  // Few rows pass the lowest cut: only they are compared with the others.
  const counts = await row(
    `select ${cuts.map((cut) => `count_if(a > ${cut})`).join()}
     from (select abs(${d}) a from residuals where abs(${d}) > ${Math.min(...cuts)})`);
  return [bias, sigma, Math.hypot(bias, sigma), mad, 1.4826 * mad, madDelta,
    ...counts.map((count) => (100 * count) / n)];
}

async function main() {
  const columns = Array.from({ length: fieldCount(table) }, (_, i) =>
    `c${i + 1}: '${i + 1 === Number(col1) || i + 1 === Number(col2) ? 'DOUBLE' : 'VARCHAR'}'`);
  const database = await DuckDBInstance.create(':memory:', { preserve_insertion_order: 'false' });
  const connections = [await database.connect(), await database.connect()];
  await connections[0].run(
    `create table residuals as
     select c${col1} - c${col2} as delta, (c${col1} - c${col2}) / (1 + c${col1}) as norm
     from read_csv('${table.replaceAll("'", "''")}', header = false, delim = ',', quote = '', escape = '',
                   auto_detect = false, columns = {${columns.join()}})`);
  await connections[0].run('set threads = 1');
  const results = await Promise.all(
    ['delta', 'norm'].map((name, i) => statistics(connections[i], name)));
  console.log(results.flat().map(sixDigits).join('\n'));
}

main().catch((error) => {
  console.error(String(error.message || error));
  process.exit(1);
});
