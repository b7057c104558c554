// The fields of one line of a comma-separated table.

#ifndef VOSTREL_TEXT_TABLE_FIELDS_H
#define VOSTREL_TEXT_TABLE_FIELDS_H

#include <optional>
#include <string_view>

namespace vostrel {

/// The field at a position of a line, counted from 1. Several commas separate like one, so an empty
/// field doesn't count. After the last field, counting goes on at the start of the line, repeatedly
/// if needed. If the line ends with a comma, each round has one more position, which has no text.
///
/// Returns nothing for a position without text, and for every position in a line of commas.
/// Takes time proportional to the line's length, for any position.
std::optional<std::string_view> field_at(std::string_view line, int position);

namespace internal {
const char* skip_some_commas(const char* text, int count);
}

/// Finds the field after `count` commas of a line, fast.
///
/// Returns the start of the field. Returns nullptr if the line ends before it, or if two commas in
/// succession, a comma at the start of the line, or a control character such as a tab come before
/// it: field_at handles those.
/// Requires a newline or NUL at the end of the text, with kTextPadding readable bytes after it.
inline const char* skip_commas(const char* line, int count) {
  return count == 0 ? line : internal::skip_some_commas(line, count);
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_TABLE_FIELDS_H
