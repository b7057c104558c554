// A library for LD_PRELOAD that makes one kind of call on one file fail. VOSTREL_FAULT says which,
// in six words:
//
//     CALL FILE PASS FROM TIMES ERROR
//
// CALL is open, read, write or close, and FILE the name that the program gives. PASS chooses one of
// the times that the file is opened, counted from 1; 0 means every time. A read or write fails from
// byte FROM of the file on. The bytes before it get through: the fault strikes at the same
// byte whatever the size of the blocks. The call fails TIMES times, or always if TIMES is 0, and
// sets errno to ERROR.
//
// "memory" as the CALL makes allocations fail from the FROM-th on; FILE and ERROR don't matter.
//
// VOSTREL_FAULT_SEEN names a file that is created when the fault first strikes.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT: the C library's own name

namespace {

constexpr int kDescriptors = 256;

struct Fault {
  char call[16] = {};
  char file[256] = {};
  long pass = 0;
  long from = 0;
  long times = 0;
  int error = 0;
  bool is_set = false;

  long passes_seen = 0;
  long struck = 0;
  bool watched[kDescriptors] = {};  // whether the descriptor is one of the file, in the chosen pass
  long position[kDescriptors] = {};  // how much was read or written by it
};
constinit Fault fault;

bool is(const char* call) { return fault.is_set && std::strcmp(fault.call, call) == 0; }

// Whether the fault strikes, now that its place is reached.
bool strikes() {
  if (fault.times != 0 && fault.struck >= fault.times) return false;
  if (fault.struck++ == 0) {
    const char* const seen = std::getenv("VOSTREL_FAULT_SEEN");
    if (seen != nullptr) {
      const long file = syscall(SYS_open, seen, O_WRONLY | O_CREAT, 0644);
      syscall(SYS_close, file);
    }
  }
  errno = fault.error;
  return true;
}

bool is_watched(int file) { return file >= 0 && file < kDescriptors && fault.watched[file]; }

// How many of `size` bytes get through. -1 if the call fails.
ssize_t allowance(const char* call, int file, std::size_t size) {
  const auto all = static_cast<ssize_t>(size);
  if (!is(call) || !is_watched(file)) return all;
  if (fault.times != 0 && fault.struck >= fault.times) return all;
  const ssize_t left = fault.from - fault.position[file];
  if (left <= 0) return strikes() ? -1 : all;
  return std::min(all, left);
}

ssize_t moved(int file, ssize_t count) {
  if (count > 0 && is_watched(file)) fault.position[file] += count;
  return count;
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::FILE* open_by(const char* function, const char* name, const char* mode) {
  const bool named = fault.is_set && std::strcmp(name, fault.file) == 0;
  const bool here = named && (++fault.passes_seen == fault.pass || fault.pass == 0);
  if (here && is("open") && strikes()) return nullptr;
  std::FILE* const file = next<std::FILE*(const char*, const char*)>(function)(name, mode);
  if (here && file != nullptr && fileno(file) < kDescriptors) {
    fault.watched[fileno(file)] = true;
    fault.position[fileno(file)] = 0;
  }
  return file;
}

__attribute__((constructor)) void set_up() {
  const char* const text = std::getenv("VOSTREL_FAULT");
  if (text == nullptr) return;
  fault.is_set = std::sscanf(text, "%15s %255s %ld %ld %ld %d", fault.call, fault.file, &fault.pass,
                             &fault.from, &fault.times, &fault.error) == 6;
}

}  // namespace

extern "C" {

std::FILE* fopen(const char* name, const char* mode) { return open_by("fopen", name, mode); }
std::FILE* fopen64(const char* name, const char* mode) { return open_by("fopen64", name, mode); }

int fclose(std::FILE* stream) {
  const int file = fileno(stream);
  const bool here = is_watched(file);
  if (here) fault.watched[file] = false;
  const int result = next<int(std::FILE*)>("fclose")(stream);
  return here && is("close") && strikes() ? EOF : result;
}

ssize_t read(int file, void* text, std::size_t size) {
  const ssize_t allowed = allowance("read", file, size);
  if (allowed < 0) return -1;
  return moved(file, syscall(SYS_read, file, text, allowed));
}

ssize_t write(int file, const void* text, std::size_t size) {
  const ssize_t allowed = allowance("write", file, size);
  if (allowed < 0) return -1;
  return moved(file, syscall(SYS_write, file, text, allowed));
}

// Writes part by part, which writev is allowed to do.
ssize_t writev(int file, const iovec* parts, int count) {
  ssize_t sum = 0;
  for (int i = 0; i < count; ++i) {
    if (parts[i].iov_len == 0) continue;
    const ssize_t written = write(file, parts[i].iov_base, parts[i].iov_len);
    if (written < 0) return sum > 0 ? sum : -1;
    sum += written;
    if (static_cast<std::size_t>(written) < parts[i].iov_len) break;
  }
  return sum;
}

void* malloc(std::size_t size) {
  static long allocations = 0;
  if (is("memory") && ++allocations >= fault.from && strikes()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_malloc(size);
}

}  // extern "C"
