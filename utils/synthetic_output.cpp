// Synthetic output: what a caller needs to make a model's output column for a loaded data set.

#include <cstddef>
#include <cstdlib>
#include <iostream>

#include "utils/utils.h"

void UTILS::AssignOutput() {
  output.insert(output.end(), zphot.begin(),
                zphot.begin() + static_cast<std::ptrdiff_t>(id.size()));
}

double UTILS::doubleRangeRand(double lo, double hi) const {
  const double r = std::rand();
  return (hi - lo) * (r / 2147483647.0) + lo;
}

int UTILS::idRand() const {
  if (id.empty()) {
    std::cout << "*** no data loaded: there is no position to draw ***" << std::endl;
    std::abort();
  }
  return static_cast<int>(static_cast<std::size_t>(std::rand()) % id.size());
}
