#include "utils/lines.h"

#include <algorithm>
#include <ostream>
#include <string_view>

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

// The "=" stands in one column.
constexpr std::size_t kLabelWidth = 17;
constexpr std::string_view kBlanks = "                      ";
constexpr bool fits(const Statistic& statistic) {
  return std::string_view(statistic.label).size() <= kLabelWidth &&
         std::string_view(statistic.normalized_label).size() <= kBlanks.size() &&
         std::string_view(statistic.normalized_console_label).size() <= kBlanks.size();
}
static_assert(std::all_of(kStatistics.begin(), kStatistics.end(), fits));

}  // namespace

void write_lines(std::ostream& out, const ResidualStatistics& statistics, Labels labels) {
  // No std::string here: lines must come out even if memory has run out.
  const std::size_t width = labels == Labels::kDelta ? kLabelWidth : kBlanks.size();
  for (const Statistic& statistic : kStatistics) {
    const std::string_view label = label_of(statistic, labels);
    out << label << kBlanks.substr(0, width - label.size()) << "= " << statistics.*statistic.member
        << statistic.unit << std::endl;
  }
}

}  // namespace vostrel
