// sixDigits(x): a number as C's "%.6g" writes it.
'use strict';
module.exports = function sixDigits(x) {
  if (!Number.isFinite(x)) return Number.isNaN(x) ? 'nan' : x < 0 ? '-inf' : 'inf';
  if (x === 0) return '0';
  const [digits, exponent] = x.toExponential(5).split('e');
  const e = Number(exponent);
  if (e >= -4 && e < 6) return x.toFixed(5 - e).replace(/\.0+$|(\.\d*?)0+$/, '$1');
  return Number(digits) + (e < 0 ? 'e-' : 'e+') + String(Math.abs(e)).padStart(2, '0');
};
