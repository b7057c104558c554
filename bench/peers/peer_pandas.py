#!/usr/bin/python3
"""peer_pandas.py TABLE COL1 COL2: the 22 statistics as one would type them with pandas, for
comparison with tuned_pandas.py.
"""
import sys

import pandas as pd

table, col1, col2 = sys.argv[1], int(sys.argv[2]) - 1, int(sys.argv[3]) - 1
rows = pd.read_csv(table, header=None, usecols=[col1, col2])
delta = rows[col1] - rows[col2]
for d in (delta, delta / (1 + rows[col1])):
    sigma, mad = d.std(ddof=0), d.abs().median()
    values = [d.mean(), sigma, (d**2).mean() ** 0.5, mad, 1.4826 * mad,
              (d - d.median()).abs().median()]
    values += [100 * (d.abs() > bound).mean()
               for bound in (0.15, sigma, 2 * sigma, 3 * sigma, 4 * sigma)]
    print(*(f"{value:.6g}" for value in values), sep="\n")
