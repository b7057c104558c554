// The two columns that statistics are computed from.

#ifndef VOSTREL_TESTS_SUPPORT_DATA_H
#define VOSTREL_TESTS_SUPPORT_DATA_H

#include <vector>

struct Data {
  std::vector<double> reference;
  std::vector<double> estimate;
};

#endif  // VOSTREL_TESTS_SUPPORT_DATA_H
