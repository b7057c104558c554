// Shared by the fuzz targets: a scratch folder in memory, captured standard output, and an abort if
// the product and the plain code differ.

#ifndef VOSTREL_TESTS_FUZZ_FUZZ_H
#define VOSTREL_TESTS_FUZZ_FUZZ_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/folder.h"

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "DIFFERENCE: %s\n", what);
  std::abort();
}

inline bool same_bits(const std::vector<double>& one, const std::vector<double>& other) {
  if (one.size() != other.size()) return false;
  for (std::size_t i = 0; i < one.size(); ++i) {
    if (bits_without_payload(one[i]) != bits_without_payload(other[i])) return false;
  }
  return true;
}

/// Takes bytes off the front of the input.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  std::uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  double number() {
    std::uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) bits = bits << 8 | byte();
    return std::bit_cast<double>(bits);
  }
  bool empty() const { return size_ == 0; }
  std::string_view rest() const { return {reinterpret_cast<const char*>(data_), size_}; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

/// A file that is rewritten for each input and stays open.
class ScratchFile {
 public:
  explicit ScratchFile(const char* name)
      : file_(open(name, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
    require(file_ >= 0, "cannot create a scratch file");
  }

  void set(std::string_view text) const {
    clear();
    require(pwrite(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "cannot write a scratch file");
  }
  std::string text() const {
    struct stat status {};
    require(fstat(file_, &status) == 0, "cannot look at a scratch file");
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    require(pread(file_, text.data(), text.size(), 0) == status.st_size, "cannot read a file");
    return text;
  }
  void clear() const { require(ftruncate(file_, 0) == 0, "cannot empty a scratch file"); }

 private:
  int file_;
};

/// An empty folder that is the working directory until the process ends.
class ScratchFolder : TemporaryFolder {
 public:
  ScratchFolder() { std::filesystem::current_path(path()); }
};

/// Takes the place of standard output and keeps what is written.
class Console : std::streambuf {
 public:
  Console() { std::cout.rdbuf(this); }
  ~Console() override = default;

  std::string take() {
    std::string taken;
    taken.swap(text_);
    return taken;
  }

 private:
  int_type overflow(int_type c) override {
    text_ += traits_type::to_char_type(c);
    return c;
  }
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    text_.append(text, static_cast<std::size_t>(size));
    return size;
  }
  std::string text_;
};

/// The result of an action: the number it returns, or the type of the exception it throws.
template <typename Action>
std::string result_of(Action action) {
  try {
    return std::to_string(action());
  } catch (const std::exception& raised) {
    return typeid(raised).name();
  }
}

#endif  // VOSTREL_TESTS_FUZZ_FUZZ_H
