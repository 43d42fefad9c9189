#include "vosh/Segment.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

namespace Vosh {

namespace {

[[noreturn]] void fail(std::string_view what, const std::string& name) {
  throw SegmentError(fmt::format("vosh: {} {}: {}", what, name, std::strerror(errno)));
}

std::byte* mapOrClose(int fd, uint64_t bytes, bool writable, const std::string& name) {
  int prot = PROT_READ | (writable ? PROT_WRITE : 0);
  void* p = mmap(nullptr, bytes, prot, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) {
    int saved = errno;
    close(fd);
    errno = saved;
    fail("cannot map", name);
  }
  return static_cast<std::byte*>(p);
}

}  // namespace

std::unique_ptr<Segment> Segment::create(const std::string& name, uint64_t bytes) {
  int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) fail("cannot create", name);
  if (ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
    int saved = errno;
    close(fd);
    shm_unlink(name.c_str());
    errno = saved;
    fail("cannot size", name);
  }
  std::byte* data = mapOrClose(fd, bytes, true, name);
  return std::unique_ptr<Segment>(new Segment(name, fd, data, bytes, true));
}

std::unique_ptr<Segment> Segment::open(const std::string& name, bool writable) {
  int fd = shm_open(name.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC, 0);
  if (fd < 0) {
    if (errno == ENOENT) return nullptr;
    fail("cannot open", name);
  }
  struct stat st {};
  if (fstat(fd, &st) != 0 || st.st_size <= 0) {
    close(fd);
    return nullptr;
  }
  auto bytes = static_cast<uint64_t>(st.st_size);
  std::byte* data = mapOrClose(fd, bytes, writable, name);
  return std::unique_ptr<Segment>(new Segment(name, fd, data, bytes, writable));
}

void Segment::unlink(const std::string& name) { shm_unlink(name.c_str()); }

Segment::Segment(std::string name, int fd, std::byte* data, uint64_t size, bool writable)
    : name_(std::move(name)), fd_(fd), data_(data), size_(size), writable_(writable) {}

Segment::~Segment() {
  munmap(data_, size_);
  close(fd_);
}

bool Segment::tryLockExclusive() { return flock(fd_, LOCK_EX | LOCK_NB) == 0; }

}  // namespace Vosh
