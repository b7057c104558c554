// Runs of the two programs, each in its own folder: start them, wait for them, and read everything
// they leave behind.

#ifndef VOSTREL_TESTS_RELIABILITY_RUNS_H
#define VOSTREL_TESTS_RELIABILITY_RUNS_H

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/folder.h"

inline void require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what + ": " + std::to_string(errno));
}

/// The whole of a file, by its descriptor.
inline std::string text_of(int file) {
  std::string text;
  char some[65536];
  ssize_t count;
  off_t offset = 0;
  while ((count = pread(file, some, sizeof some, offset)) > 0) {
    text.append(some, static_cast<std::size_t>(count));
    offset += count;
  }
  return text;
}

/// Whether the text consists of the first lines of `whole`, each of them complete.
inline bool whole_lines(std::string_view text, std::string_view whole) {
  return whole.starts_with(text) && (text.empty() || text.back() == '\n');
}

/// A folder that a program runs in.
class Folder : public TemporaryFolder {
 public:
  void clear() const {
    for (const std::string& name : names()) {
      if (unlink(path_of(name).c_str()) != 0) std::filesystem::remove_all(path_of(name));
    }
  }

  void write(const std::string& name, std::string_view text) const {
    const int file = open(path_of(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    require(file >= 0, name);
    while (!text.empty()) {
      const ssize_t count = ::write(file, text.data(), text.size());
      require(count > 0, name);
      text.remove_prefix(static_cast<std::size_t>(count));
    }
    close(file);
  }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    DIR* const folder = opendir(path().c_str());
    require(folder != nullptr, path());
    while (const dirent* entry = readdir(folder)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(folder);
    return names;
  }

  /// Name and text of each regular file, and only the name of anything else.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> files;
    for (const std::string& name : names()) {
      struct stat status {};
      const int file = open(path_of(name).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
      const bool regular = file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode);
      files[name] = regular ? text_of(file) : "(no regular file)";
      if (file >= 0) close(file);
    }
    return files;
  }
};

/// A file without a name, for a standard stream of a run.
class Stream {
 public:
  Stream() : file_(memfd_create("stream", MFD_CLOEXEC)) { require(file_ >= 0, "memfd_create"); }
  ~Stream() { close(file_); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int file() const { return file_; }
  std::string text() const { return text_of(file_); }
  void clear() const {
    require(ftruncate(file_, 0) == 0 && lseek(file_, 0, SEEK_SET) == 0, "clear a stream");
  }

 private:
  int file_;
};

/// Starts a program in a folder, with these two files as its standard output and error.
inline pid_t start(const std::string& program, const std::vector<std::string>& arguments,
                   const Folder& folder, int output, int error) {
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, 1);
  posix_spawn_file_actions_adddup2(&actions, error, 2);
  posix_spawn_file_actions_addchdir_np(&actions, folder.path().c_str());
  // Signals have their default action, also when this program was started in the background.
  sigset_t by_default;
  sigemptyset(&by_default);
  sigaddset(&by_default, SIGINT);
  sigaddset(&by_default, SIGPIPE);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &by_default);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  const int failed =
      posix_spawn(&child, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  errno = failed;
  require(failed == 0, program);
  return child;
}

/// Waits for the end of a run and returns its wait status.
inline int finish(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) require(errno == EINTR, "waitpid");
  return status;
}

/// Describes a wait status.
inline std::string words(int status) {
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  return "signal " + std::to_string(WTERMSIG(status));
}

/// Switches off core files, of which a thousand aborts would leave as many.
inline void without_core_files() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

/// The absolute path of a program, since it is started from other folders.
inline std::string absolute(const char* program) {
  return std::filesystem::absolute(program).string();
}

#endif  // VOSTREL_TESTS_RELIABILITY_RUNS_H
