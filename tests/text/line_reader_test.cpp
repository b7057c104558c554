// Lines as std::getline would read them, whatever the blocks they arrive in.

#include "text/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/random.h"
#include "tests/support/scratch.h"
#include "text/number_text.h"

namespace {

using namespace std::string_literals;

using Lines = std::vector<std::string>;

class LineReaderTest : public InScratchFolder {
 protected:
  static Lines lines_of(const char* name) {
    vostrel::LineReader file(name);
    Lines lines;
    std::string_view line;
    while (file.fill()) {
      while (file.next(line)) {
        lines.emplace_back(line);
        // The promised bytes behind it are there: an address checker would object otherwise.
        const volatile char behind = line.data()[line.size() + vostrel::kTextPadding - 1];
        static_cast<void>(behind);
      }
    }
    EXPECT_FALSE(file.next(line));
    EXPECT_FALSE(file.fill());
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

TEST_F(LineReaderTest, DropsTheNewlineAndNothingElse) {
  EXPECT_EQ(lines_in(""), Lines{});
  EXPECT_EQ(lines_in("\n"), Lines{""});
  EXPECT_EQ(lines_in("a\nb\n"), (Lines{"a", "b"}));
  EXPECT_EQ(lines_in("a\nb"), (Lines{"a", "b"}));
  EXPECT_EQ(lines_in("\n\na\n\n"), (Lines{"", "", "a", ""}));
  EXPECT_EQ(lines_in(" a \r\n\r\n"), (Lines{" a \r", "\r"}));
  EXPECT_EQ(lines_in("a\0b\n\0\n"s), (Lines{"a\0b"s, "\0"s}));
}

TEST_F(LineReaderTest, AFileThatCannotBeOpenedHasNoLines) {
  EXPECT_FALSE(vostrel::LineReader("no such file").is_open());
  EXPECT_EQ(lines_of("no such file"), Lines{});
}

TEST_F(LineReaderTest, ADirectoryIsOpenAndHasNoLines) {
  std::filesystem::create_directory("folder");
  EXPECT_TRUE(vostrel::LineReader("folder").is_open());
  EXPECT_EQ(lines_of("folder"), Lines{});
}

TEST_F(LineReaderTest, LinesOfEveryLengthAreGetlinesAroundBlockBounds) {
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

TEST_F(LineReaderTest, LinesOnABlockBoundAreWhole) {
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

TEST_F(LineReaderTest, ALongLineIsOneLine) {
  const std::string line(20000000, 'x');
  EXPECT_EQ(lines_in("a\n" + line + "\nb\n"), (Lines{"a", line, "b"}));
}

TEST_F(LineReaderTest, LinesOfAPipeAreHandedOutBeforeTheNextOneIsWaitedFor) {
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  const int pipe = open("pipe", O_RDWR);
  const auto send = [&](std::string_view text) {
    ASSERT_EQ(write(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  };
  vostrel::LineReader file("pipe");
  std::string_view line;
  send("one\ntw");
  ASSERT_TRUE(file.fill());
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "one");
  EXPECT_FALSE(file.next(line));
  send("o\nthree\nfo");
  ASSERT_TRUE(file.fill());
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "two");
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "three");
  EXPECT_FALSE(file.next(line));
  close(pipe);
  ASSERT_TRUE(file.fill());
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "fo");
  EXPECT_FALSE(file.fill());
}

TEST_F(LineReaderTest, LinesCanBeTakenTogetherAndOneByOne) {
  write_file("text", "a\nbb\nccc\nd");
  vostrel::LineReader file("text");
  std::string_view line;
  ASSERT_TRUE(file.fill());
  EXPECT_EQ(file.lines(), "a\nbb\nccc\n");
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "a");
  EXPECT_EQ(file.lines(), "bb\nccc\n");
  file.take_until(file.lines().data() + 3);
  ASSERT_TRUE(file.next(line));
  EXPECT_EQ(line, "ccc");
  EXPECT_EQ(file.lines(), "");
  ASSERT_TRUE(file.fill());
  EXPECT_EQ(file.lines(), "d");
  file.take_until(file.lines().data() + 1);
  EXPECT_FALSE(file.next(line));
  EXPECT_FALSE(file.fill());
}

}  // namespace
