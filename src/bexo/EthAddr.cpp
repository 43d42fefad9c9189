#include "bexo/EthAddr.h"

#include "bexo/Hash.h"

#include <ostream>
#include <stdexcept>

namespace Bexo {

static_assert(sizeof(EthAddr) == 6);

namespace {

// "hh:" for five bytes and "hh" for the last.
constexpr std::size_t textSize = 6 * 3 - 1;

int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

bool parseHexByte(char high, char low, std::uint8_t& byte) {
  const int h = hexDigitValue(high);
  const int l = hexDigitValue(low);
  if (h < 0 || l < 0) {
    return false;
  }
  byte = static_cast<std::uint8_t>(h * 16 + l);
  return true;
}

}  // namespace

bool EthAddr::parse(std::string_view text, EthAddr& addr) {
  if (text.size() != textSize) {
    return false;
  }
  Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::size_t at = i * 3;
    if (i > 0 && text[at - 1] != ':') {
      return false;
    }
    if (!parseHexByte(text[at], text[at + 1], bytes[i])) {
      return false;
    }
  }
  addr = EthAddr(bytes);
  return true;
}

EthAddr EthAddr::fromString(std::string_view text) {
  EthAddr addr;
  if (!parse(text, addr)) {
    throw std::invalid_argument(
        fmt::format("bad MAC address '{}': expected six hex byte pairs separated by colons, like "
                    "00:1c:73:00:00:01",
                    text));
  }
  return addr;
}

fmt::appender EthAddr::formatTo(fmt::appender out) const {
  return fmt::format_to(out, "{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", bytes_[0], bytes_[1],
                        bytes_[2], bytes_[3], bytes_[4], bytes_[5]);
}

std::string EthAddr::stringValue() const { return fmt::to_string(*this); }

std::size_t EthAddr::hash() const {
  std::uint64_t value = 0;
  for (std::uint8_t byte : bytes_) {
    value = (value << 8) | byte;
  }
  return hashMix(value);
}

std::ostream& operator<<(std::ostream& os, const EthAddr& addr) { return os << addr.stringValue(); }

}  // namespace Bexo
