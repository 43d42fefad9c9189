#include "bexo/IpGenAddr.h"

#include "bexo/Hash.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>
#include <ostream>
#include <stdexcept>

namespace Bexo {

static_assert(sizeof(IpGenAddr) == 17);

namespace {

// inet_pton needs a terminated string; anything longer than the longest address text
// (an IPv6 address with an embedded IPv4 one) cannot be an address.
constexpr std::size_t maxAddressText = INET6_ADDRSTRLEN;

int familyOf(std::string_view text) {
  return text.find(':') == std::string_view::npos ? AF_INET : AF_INET6;
}

std::uint64_t loadWord(const std::uint8_t* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

}  // namespace

IpGenAddr IpGenAddr::fromIpv4(std::uint32_t address) {
  IpGenAddr addr;
  addr.af_ = afIpv4;
  const std::uint32_t networkOrder = htonl(address);
  std::memcpy(addr.bytes_.data(), &networkOrder, sizeof(networkOrder));
  return addr;
}

IpGenAddr IpGenAddr::fromIpv6(const Ipv6Bytes& bytes) {
  IpGenAddr addr;
  addr.af_ = afIpv6;
  addr.bytes_ = bytes;
  return addr;
}

bool IpGenAddr::parse(std::string_view text, IpGenAddr& addr) {
  if (text.empty()) {
    addr = IpGenAddr();
    return true;
  }
  if (text.size() >= maxAddressText) {
    return false;
  }
  char terminated[maxAddressText];
  text.copy(terminated, text.size());
  terminated[text.size()] = '\0';
  IpGenAddr parsed;
  const int family = familyOf(text);
  if (inet_pton(family, terminated, parsed.bytes_.data()) != 1) {
    return false;
  }
  parsed.af_ = family == AF_INET ? afIpv4 : afIpv6;
  addr = parsed;
  return true;
}

IpGenAddr IpGenAddr::fromString(std::string_view text) {
  IpGenAddr addr;
  if (!parse(text, addr)) {
    throw std::invalid_argument(
        fmt::format("bad IP address '{}': expected a dotted IPv4 or an IPv6 address", text));
  }
  return addr;
}

std::uint32_t IpGenAddr::ipv4Value() const {
  if (af_ != afIpv4) {
    return 0;
  }
  std::uint32_t networkOrder = 0;
  std::memcpy(&networkOrder, bytes_.data(), sizeof(networkOrder));
  return ntohl(networkOrder);
}

std::span<const std::uint8_t> IpGenAddr::bytes() const {
  switch (af_) {
    case afIpv4:
      return std::span(bytes_).first(4);
    case afIpv6:
      return std::span(bytes_);
    case afUnknown:
      break;
  }
  return {};
}

fmt::appender IpGenAddr::formatTo(fmt::appender out) const {
  if (af_ == afUnknown) {
    return out;
  }
  char text[maxAddressText];
  inet_ntop(af_ == afIpv4 ? AF_INET : AF_INET6, bytes_.data(), text, sizeof(text));
  return fmt::format_to(out, "{}", std::string_view(text));
}

std::string IpGenAddr::stringValue() const { return fmt::to_string(*this); }

std::size_t IpGenAddr::hash() const {
  std::size_t h = hashMix(af_);
  h = hashCombine(h, loadWord(bytes_.data()));
  return hashCombine(h, loadWord(bytes_.data() + 8));
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& addr) {
  return os << addr.stringValue();
}

}  // namespace Bexo
