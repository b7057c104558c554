// A new working directory for each test, its files, and what the code under test prints.

#ifndef VOSTREL_TESTS_SUPPORT_SCRATCH_H
#define VOSTREL_TESTS_SUPPORT_SCRATCH_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/support/folder.h"

/// A test that runs in an empty temporary folder and leaves nothing behind.
class InScratchFolder : public testing::Test {
 protected:
  InScratchFolder() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder_.path());
  }
  ~InScratchFolder() override {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
  }

  static void write_file(const std::string& name, std::string_view text) {
    // A new file each time: rewriting one in place makes some file systems wait for the disk.
    std::filesystem::remove(name);
    std::ofstream(name, std::ios::binary) << text;
  }
  static std::string read_file(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  static bool exists(const std::string& name) { return std::filesystem::exists(name); }

 private:
  std::filesystem::path before_;
  TemporaryFolder folder_;
};

/// What `action` writes to standard output.
template <typename Action>
std::string printed_by(Action action) {
  testing::internal::CaptureStdout();
  try {
    action();
  } catch (...) {
    testing::internal::GetCapturedStdout();
    throw;
  }
  return testing::internal::GetCapturedStdout();
}

#endif  // VOSTREL_TESTS_SUPPORT_SCRATCH_H
