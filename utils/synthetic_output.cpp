// Synthetic output: makes and writes a model's output column for a loaded data set.

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iostream>

#include "floating_point.h"
#include "utils/utils.h"

void UTILS::AssignOutput() {
  output.insert(output.end(), zphot.begin(),
                zphot.begin() + static_cast<std::ptrdiff_t>(id.size()));
}

void UTILS::storeORMEDAOutput() const {
  std::ofstream file(nameOutputFile);
  file << "# ID zspec zphot" << std::endl;
  const std::size_t rows = std::min({id.size(), zspec.size(), output.size()});
  for (std::size_t i = 0; i < rows; ++i) {
    file << id[i] << " " << zspec[i] << " " << output[i] << std::endl;
  }
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
