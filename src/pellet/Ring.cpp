#include "pellet/Ring.h"

#include <cstring>
#include <string>

namespace Pellet {

Ring::Ring(std::size_t capacity) : capacity_(capacity) {}

void Ring::push(std::string_view head, std::string_view body) {
  if (lengthBytes + head.size() > capacity_) return;
  body = body.substr(0, capacity_ - lengthBytes - head.size());
  const std::size_t payload = head.size() + body.size();
  while (used_ + lengthBytes + payload > capacity_) dropOldest();
  if (bytes_.empty()) bytes_.resize(capacity_);

  const uint32_t length = static_cast<uint32_t>(payload);
  std::size_t tail = wrapped(oldest_ + used_);
  writeAt(tail, reinterpret_cast<const char*>(&length), lengthBytes);
  tail = wrapped(tail + lengthBytes);
  writeAt(tail, head.data(), head.size());
  tail = wrapped(tail + head.size());
  writeAt(tail, body.data(), body.size());
  used_ += lengthBytes + payload;
  ++entries_;
}

void Ring::forEach(const std::function<void(std::string_view)>& visit) const {
  std::string entry;
  std::size_t offset = oldest_;
  for (std::size_t i = 0; i < entries_; ++i) {
    const uint32_t length = lengthAt(offset);
    entry.resize(length);
    readAt(wrapped(offset + lengthBytes), entry.data(), length);
    visit(entry);
    offset = wrapped(offset + lengthBytes + length);
  }
}

void Ring::capacityIs(std::size_t capacity) {
  bytes_.clear();
  bytes_.shrink_to_fit();
  capacity_ = capacity;
  oldest_ = 0;
  used_ = 0;
  entries_ = 0;
}

std::size_t Ring::wrapped(std::size_t offset) const {
  return offset >= capacity_ ? offset - capacity_ : offset;
}

void Ring::writeAt(std::size_t offset, const char* data, std::size_t size) {
  if (size == 0) return;
  const std::size_t untilEnd = capacity_ - offset;
  if (size <= untilEnd) {
    std::memcpy(bytes_.data() + offset, data, size);
    return;
  }
  std::memcpy(bytes_.data() + offset, data, untilEnd);
  std::memcpy(bytes_.data(), data + untilEnd, size - untilEnd);
}

void Ring::readAt(std::size_t offset, char* out, std::size_t size) const {
  if (size == 0) return;
  const std::size_t untilEnd = capacity_ - offset;
  if (size <= untilEnd) {
    std::memcpy(out, bytes_.data() + offset, size);
    return;
  }
  std::memcpy(out, bytes_.data() + offset, untilEnd);
  std::memcpy(out + untilEnd, bytes_.data(), size - untilEnd);
}

uint32_t Ring::lengthAt(std::size_t offset) const {
  uint32_t length;
  readAt(offset, reinterpret_cast<char*>(&length), lengthBytes);
  return length;
}

void Ring::dropOldest() {
  const std::size_t entry = lengthBytes + lengthAt(oldest_);
  oldest_ = wrapped(oldest_ + entry);
  used_ -= entry;
  --entries_;
}

}  // namespace Pellet
