#pragma once
// One POSIX shared-memory object, open and mapped.
//
// The object is never unlinked by closing it: contents outlive the process,
// which is what restart recovery reads. A writer holds an exclusive advisory
// lock on the object it writes; the kernel drops it when the writer's process
// ends, so a second live writer of one path is refused and a dead one's
// segment can be taken over.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace Vosh {

class SegmentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Segment {
 public:
  // A new object of `bytes` zero bytes, owner-only, mapped for writing.
  // Throws SegmentError when it exists already or cannot be made.
  static std::unique_ptr<Segment> create(const std::string& name, uint64_t bytes);
  // The existing object, mapped read-only or for writing; null when there is
  // no such object or it is still being sized.
  static std::unique_ptr<Segment> open(const std::string& name, bool writable);
  static void unlink(const std::string& name);

  ~Segment();
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  const std::string& name() const noexcept { return name_; }
  std::byte* data() const noexcept { return data_; }
  uint64_t size() const noexcept { return size_; }
  bool writable() const noexcept { return writable_; }
  bool tryLockExclusive();

 private:
  Segment(std::string name, int fd, std::byte* data, uint64_t size, bool writable);

  std::string name_;
  int fd_;
  std::byte* data_;
  uint64_t size_;
  bool writable_;
};

}  // namespace Vosh
