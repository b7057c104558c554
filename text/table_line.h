// The fields of one line of a comma-separated table.

#ifndef VOSTREL_TEXT_TABLE_LINE_H
#define VOSTREL_TEXT_TABLE_LINE_H

#include <optional>
#include <string_view>

namespace vostrel {

/// The field at a 1-based position of a line, as the table reader counts: runs of commas separate
/// like one, so that an empty field is not seen, and behind the last field the count goes on at the
/// start of the line, round and round. When commas end the line, each round has one position more,
/// which has no text: it gives no value, and neither does any position of a line of commas.
///
/// Takes time in proportion to the line's length, whatever the position.
std::optional<std::string_view> field_at(std::string_view line, int position);

namespace internal {
const char* skip_some_commas(const char* text, int count);
}

/// A fast way to the field behind `count` commas of the line that starts at `text`.
///
/// @return the start of that field; nullptr when the line ends earlier, or when something unusual
/// is
///         on the way there (two commas together or one at the line's start, a tab or another
///         control character): field_at knows what to do then.
/// Precondition: the text ends with a newline or a NUL with kTextPadding readable bytes behind it.
inline const char* skip_commas(const char* text, int count) {
  return count == 0 ? text : internal::skip_some_commas(text, count);
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_TABLE_LINE_H
