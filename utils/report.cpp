// The statistics report file.

#include <fstream>
#include <iostream>

#include "utils/lines.h"
#include "utils/utils.h"

void UTILS::storeStatistics() const {
  const vostrel::PointStatistics statistics = statistics_of(*this);
  std::ofstream file(nameOutputFile);
  file << "Data size  = " << id.size() << std::endl << std::endl;
  file << "Statistics on delta [col" << col1 << " - col" << col2 << "]:" << std::endl;
  vostrel::write_lines(file, statistics.delta, &vostrel::Statistic::label);
  file << std::endl;
  file << "Statistics on normalized delta [(col" << col1 << " - col" << col2 << ") / (1 + col"
       << col1 << ")]:" << std::endl;
  vostrel::write_lines(file, statistics.norm, &vostrel::Statistic::normalized_label);
  file.close();

  std::cout << std::endl;
  std::cout << "Statistics stored in the file " << nameOutputFile << std::endl;
  std::cout << std::endl;
}
