#include "statistics/lines.h"

#include <ostream>
#include <string>

namespace vostrel {

namespace {

const char* label_of(const Statistic& statistic, Labels labels) {
  switch (labels) {
    case Labels::kDelta:
      return statistic.label;
    case Labels::kNormalized:
      return statistic.normalized_label;
    case Labels::kNormalizedOnConsole:
      return statistic.normalized_console_label;
  }
  return "";
}

}  // namespace

void write_lines(std::ostream& out, const ResidualStatistics& statistics, Labels labels) {
  const std::size_t width = labels == Labels::kDelta ? 17 : 22;
  for (const Statistic& statistic : kStatistics) {
    std::string label = label_of(statistic, labels);
    label.resize(width, ' ');
    out << label << "= " << statistics.*statistic.member << statistic.unit << std::endl;
  }
}

}  // namespace vostrel
