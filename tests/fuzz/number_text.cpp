// Reading, copying and writing numbers. The first byte chooses what to do with the rest: read it as
// a double and as an int, followed by other bytes as in a line, and copy it; or take doubles from
// it, by their bits or by a few decimal digits, and write them.

#include <cmath>

#include "fuzz.h"
#include "tests/plain/plain_utils.h"
#include "text/copy_number.h"
#include "text/write_number.h"

namespace {

// Reads `text`, followed by the end of a field and bytes that don't belong to it.
void read(std::string_view text, std::uint8_t choice) {
  static constexpr char kEnds[] = {',', ' ', '\n', '\0'};
  static constexpr char kBehind[] = {'0', '9', '.', 'e', ',', '\n', 'x', '\0'};
  std::string line(text);
  line += kEnds[choice % 4];
  line.append(vostrel::kTextPadding, kBehind[choice / 4 % 8]);
  // Without spare capacity: the sanitizer sees a read beyond the padding.
  std::vector<char> exact(line.begin(), line.end());
  const std::string_view field(exact.data(), text.size());
  const std::string copy(text);
  require(bits_without_payload(vostrel::read_double(field)) ==
              bits_without_payload(plain::read_double(copy)),
          "read_double");
  require(vostrel::read_int(field) == plain::read_int(copy), "read_int");
}

// Copies the field that `text` begins with from a line that holds nothing else.
void copy_field(std::string_view text) {
  const std::string field(text.substr(0, text.find_first_of(std::string_view(",\n\0", 3))));
  std::string line = field + '\n';
  line.append(vostrel::kTextPadding, '7');
  std::vector<char> exact(line.begin(), line.end());
  std::vector<char> room(vostrel::kNumberRoom);
  const vostrel::CopiedNumber copied = vostrel::copy_number(exact.data(), ',', room.data());
  if (copied.read_end == nullptr) {  // allowed for an empty or a long field
    require(field.empty() || field.size() > vostrel::kShortText, "copy_number");
    return;
  }
  require(!field.empty(), "copy_number of nothing");
  require(copied.read_end == exact.data() + field.size(), "copy_number's end");
  const std::string_view written(room.data(),
                                 static_cast<std::size_t>(copied.write_end - room.data()));
  require(written == plain::write_double(plain::read_double(field)), "copy_number's text");
}

void write(double value) {
  std::vector<char> room(vostrel::kNumberRoom);
  const char* const end = vostrel::write_double(value, room.data());
  const std::string_view text(room.data(), static_cast<std::size_t>(end - room.data()));
  require(text == plain::write_double(value), "write_double");
}

void write_with_neighbours(double value) {
  write(value);
  write(std::nextafter(value, INFINITY));
  write(std::nextafter(value, -INFINITY));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t choice = input.byte();
  switch (choice % 4) {
    case 0:  // the text of a field
    case 1: {
      const std::string_view text = input.rest();
      read(text, choice / 4);
      copy_field(text);
      break;
    }
    case 2:  // any number
      write(input.number());
      break;
    default: {  // a few digits, a five or not, and a power of ten
      std::int64_t digits = 0;
      for (int i = 0; i < 3; ++i) digits = digits * 256 + input.byte();
      const int tail = input.byte() % 4;
      const int power = input.byte() % 24 - 12;
      const double made = static_cast<double>(tail == 0 ? digits : digits * 10 + 5);
      write_with_neighbours(made * std::pow(10.0, power));
      write_with_neighbours(made / std::pow(10.0, power));
      break;
    }
  }
  return 0;
}
