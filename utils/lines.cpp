#include "utils/lines.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string_view>

namespace vostrel {

namespace {

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

void write_lines(std::ostream& out, const ResidualStatistics& statistics,
                 const char* Statistic::*label) {
  // No std::string here: lines must come out even if memory has run out.
  const std::size_t width = label == &Statistic::label ? kLabelWidth : kBlanks.size();
  for (const Statistic& statistic : kStatistics) {
    const std::string_view text = statistic.*label;
    out << text << kBlanks.substr(0, width - text.size()) << "= " << statistics.*statistic.member
        << statistic.unit << std::endl;
  }
}

}  // namespace vostrel

vostrel::PointStatistics statistics_of(const UTILS& run) {
  return {.n = static_cast<std::uint64_t>(run.getDataSize()),
          .delta = {run.getBias(), run.getSigma(), run.getRMS(), run.getMAD(), run.getNMAD(),
                    run.getMADDeltaz(), run.getOutliersConstant(), run.getOutliers1(),
                    run.getOutliers2(), run.getOutliers3(), run.getOutliers4()},
          .norm = {run.getBiasNorm(), run.getSigmaNorm(), run.getRMSNorm(), run.getMADNorm(),
                   run.getNMADNorm(), run.getMADDeltazNorm(), run.getOutliersConstantNorm(),
                   run.getOutliers1Norm(), run.getOutliers2Norm(), run.getOutliers3Norm(),
                   run.getOutliers4Norm()}};
}
