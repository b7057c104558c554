// Temporary folders.

#ifndef VOSTREL_TESTS_SUPPORT_FOLDER_H
#define VOSTREL_TESTS_SUPPORT_FOLDER_H

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

/// An empty folder, which is removed with the object. In memory if possible, since some tests make
/// thousands of runs.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    const bool in_memory = access("/dev/shm", W_OK) == 0;
    path_ = std::string(in_memory ? "/dev/shm" : "/tmp") + "/vostrel-test-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder: " + path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string path_of(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

#endif  // VOSTREL_TESTS_SUPPORT_FOLDER_H
