#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace Pellet {

// A fixed-size byte ring of variable-length entries. Each entry is a 4-byte length followed by
// its bytes; an entry may straddle the end of the buffer, so no space is wasted on padding and
// the retained bytes never exceed the capacity. Making room for a new entry drops the oldest
// ones, which is what a trace buffer wants: the newest history survives.
//
// The buffer is allocated on the first push, so levels that are never recorded cost nothing.
class Ring {
 public:
  explicit Ring(std::size_t capacity = 0);

  std::size_t capacity() const { return capacity_; }
  std::size_t usedBytes() const { return used_; }
  std::size_t entryCount() const { return entries_; }

  // Stores `head` then `body` as one entry. A body too long for the whole ring is cut short;
  // a ring too small to hold even the head keeps nothing.
  void push(std::string_view head, std::string_view body);

  // Visits the entries oldest first. The view is valid only during the call.
  void forEach(const std::function<void(std::string_view)>& visit) const;

  // Changes the capacity; the retained entries are discarded.
  void capacityIs(std::size_t capacity);

 private:
  static constexpr std::size_t lengthBytes = sizeof(uint32_t);

  std::size_t wrapped(std::size_t offset) const;
  void writeAt(std::size_t offset, const char* data, std::size_t size);
  void readAt(std::size_t offset, char* out, std::size_t size) const;
  uint32_t lengthAt(std::size_t offset) const;
  void dropOldest();

  std::vector<char> bytes_;
  std::size_t capacity_;
  std::size_t oldest_ = 0;
  std::size_t used_ = 0;
  std::size_t entries_ = 0;
};

}  // namespace Pellet
