// Lines, compared with std::getline.

#include "text/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/random.h"
#include "tests/support/scratch.h"
#include "text/eight_characters.h"

// The linker redirects every memmove of the tests and the library to this.
extern "C" void* __real_memmove(void* to, const void* from, std::size_t size);
static std::size_t moved_bytes = 0;
extern "C" void* __wrap_memmove(void* to, const void* from, std::size_t size) {
  moved_bytes += size;
  return __real_memmove(to, from, size);
}

namespace {

using namespace std::string_literals;

using Lines = std::vector<std::string>;

class LineReaderTest : public InScratchFolder {
 protected:
  static Lines lines_of(const char* name) {
    vostrel::LineReader file(name);
    Lines lines;
    for (std::string_view block; !(block = file.next_lines()).empty();) {
      // Reads the last byte of the padding, which an address sanitizer checks.
      const volatile char padding = block.data()[block.size() + vostrel::kTextPadding - 1];
      static_cast<void>(padding);
      while (!block.empty()) lines.emplace_back(vostrel::take_line(block));
    }
    EXPECT_TRUE(file.next_lines().empty());
    return lines;
  }

  static Lines lines_by_getline(const char* name) {
    std::ifstream file(name);
    Lines lines;
    std::string line;
    while (std::getline(file, line)) lines.push_back(line);
    return lines;
  }

  static Lines lines_in(const std::string& text) {
    write_file("text", text);
    return lines_of("text");
  }
};

TEST_F(LineReaderTest, DropsOnlyTheNewline) {
  EXPECT_EQ(lines_in(""), Lines{});
  EXPECT_EQ(lines_in("\n"), Lines{""});
  EXPECT_EQ(lines_in("a\nb\n"), (Lines{"a", "b"}));
  EXPECT_EQ(lines_in("a\nb"), (Lines{"a", "b"}));
  EXPECT_EQ(lines_in("\n\na\n\n"), (Lines{"", "", "a", ""}));
  EXPECT_EQ(lines_in(" a \r\n\r\n"), (Lines{" a \r", "\r"}));
  EXPECT_EQ(lines_in("a\0b\n\0\n"s), (Lines{"a\0b"s, "\0"s}));
}

TEST_F(LineReaderTest, AMissingFileHasNoLines) {
  EXPECT_FALSE(vostrel::LineReader("no such file").is_open());
  EXPECT_EQ(lines_of("no such file"), Lines{});
}

TEST_F(LineReaderTest, ADirectoryIsOpenAndHasNoLines) {
  std::filesystem::create_directory("folder");
  EXPECT_TRUE(vostrel::LineReader("folder").is_open());
  EXPECT_EQ(lines_of("folder"), Lines{});
}

TEST_F(LineReaderTest, MatchesGetlineForLinesOfEveryLength) {
  Random random;
  for (int i = 0; i < rounds(60); ++i) {
    std::string text;
    const std::size_t longest = std::size_t{1} << random.below(19);
    while (text.size() < 600000) {
      text += std::string(random.below(longest + 1), static_cast<char>('a' + random.below(26)));
      if (!random.one_in(50)) text += '\n';
    }
    write_file("text", text);
    ASSERT_EQ(lines_of("text"), lines_by_getline("text"));
  }
}

TEST_F(LineReaderTest, KeepsLinesAtBlockBoundariesWhole) {
  for (const std::size_t bound :
       {std::size_t{1} << 12, std::size_t{1} << 16, std::size_t{1} << 17, std::size_t{1} << 18}) {
    for (std::size_t size = bound - 3; size <= bound + 3; ++size) {
      const std::string line(size, 'x');
      EXPECT_EQ(lines_in(line), Lines{line});
      EXPECT_EQ(lines_in(line + "\n"), Lines{line});
      EXPECT_EQ(lines_in(line + "\n\ny"), (Lines{line, "", "y"}));
    }
  }
}

TEST_F(LineReaderTest, MovesALongLineOnlyToGrow) {
#if defined(VOSTREL_TESTS_SANITIZED)
  GTEST_SKIP() << "sanitizers have their own memmove";
#endif
  const std::string line(20000000, 'x');
  write_file("text", line + "\n");
  vostrel::LineReader file("text");
  const std::size_t moved_before = moved_bytes;
  EXPECT_EQ(file.next_lines().size(), line.size() + 1);
  // Each time the buffer is full, the reader doubles it and moves the text once.
  EXPECT_GT(moved_bytes - moved_before, 0u);
  EXPECT_LT(moved_bytes - moved_before, 2 * line.size());
}

TEST_F(LineReaderTest, ReturnsLinesOfAPipeBeforeItWaits) {
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  const int pipe = open("pipe", O_RDWR);
  const auto send = [&](std::string_view text) {
    ASSERT_EQ(write(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  };
  vostrel::LineReader file("pipe");
  send("one\ntw");
  EXPECT_EQ(file.next_lines(), "one\n");
  send("o\nthree\nfo");
  EXPECT_EQ(file.next_lines(), "two\nthree\n");
  close(pipe);
  EXPECT_EQ(file.next_lines(), "fo");
  EXPECT_EQ(file.next_lines(), "");
}

}  // namespace
