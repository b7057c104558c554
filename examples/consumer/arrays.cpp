// Prints error statistics of estimates in memory: those of catalogue.txt.

#include <vostrel/statistics.h>

#include <iostream>
#include <vector>

int main() {
  const std::vector<double> reference{0.25, 0.5, 0.75, 1};
  const std::vector<double> estimate{0.26, 0.47, 0.75, 1.4};
  const vostrel::PointStatistics s = vostrel::point_statistics(reference, estimate);

  std::cout << "objects   " << s.n << '\n'
            << "bias      " << s.norm.bias << '\n'
            << "NMAD      " << s.norm.nmad << '\n'
            << "outliers  " << s.norm.outliers_015 << "%\n";
}
