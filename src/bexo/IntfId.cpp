#include "bexo/IntfId.h"

#include "bexo/DecimalText.h"
#include "bexo/Hash.h"

#include <array>
#include <ostream>
#include <stdexcept>

namespace Bexo {

static_assert(sizeof(IntfId) == 4);

namespace {

constexpr std::string_view null0Name = "Null0";
constexpr std::string_view ethernetPrefix = "Ethernet";
constexpr std::string_view vlanPrefix = "Vlan";
constexpr std::string_view nexthopGroupPrefix = "NexthopGroup";
constexpr std::string_view dynamicTunnelPrefix = "DynamicTunnel";
constexpr std::string_view pseudowirePrefix = "Pseudowire";
constexpr std::string_view portPseudowirePrefix = "PortPseudowire";

void checkRange(std::string_view what, std::uint32_t value, std::uint32_t min, std::uint32_t max) {
  if (value < min || value > max) {
    throw std::invalid_argument(
        fmt::format("{} {} out of range: expected {} to {}", what, value, min, max));
  }
}

bool parsePositive(std::string_view text, std::uint32_t max, std::uint32_t& value) {
  return parseDecimal(text, max, value) && value > 0;
}

}  // namespace

IntfId IntfId::null0() { return IntfId(familyNull0, 0); }

IntfId IntfId::ethernet(std::uint32_t port, std::uint32_t subPort) {
  checkRange("Ethernet port", port, 1, maxEthernetPort);
  checkRange("Ethernet sub-port", subPort, 0, maxEthernetSubPort);
  return IntfId(familyEthernet, (port << ethernetPortShift) | subPort);
}

IntfId IntfId::vlan(std::uint32_t vlanId) {
  checkRange("VLAN id", vlanId, 1, maxVlanId);
  return IntfId(familyVlan, vlanId);
}

IntfId IntfId::numbered(Family family, std::uint32_t number) {
  checkRange("interface number", number, 0, maxNumber);
  return IntfId(family, number);
}

IntfId IntfId::nexthopGroup(std::uint32_t groupId) { return numbered(familyNexthopGroup, groupId); }

IntfId IntfId::dynamicTunnel(std::uint32_t tunnelId) {
  return numbered(familyDynamicTunnel, tunnelId);
}

IntfId IntfId::pseudowire(std::uint32_t pseudowireId) {
  return numbered(familyPseudowire, pseudowireId);
}

IntfId IntfId::portPseudowire(std::uint32_t pseudowireId) {
  return numbered(familyPortPseudowire, pseudowireId);
}

bool IntfId::parse(std::string_view text, IntfId& intfId) {
  if (text.empty()) {
    intfId = IntfId();
    return true;
  }
  if (text == null0Name) {
    intfId = null0();
    return true;
  }
  std::uint32_t number = 0;
  if (text.starts_with(ethernetPrefix)) {
    const std::string_view numbers = text.substr(ethernetPrefix.size());
    const std::size_t slash = numbers.find('/');
    std::uint32_t subPort = 0;
    if (!parsePositive(numbers.substr(0, slash), maxEthernetPort, number)) {
      return false;
    }
    if (slash != std::string_view::npos &&
        !parsePositive(numbers.substr(slash + 1), maxEthernetSubPort, subPort)) {
      return false;
    }
    intfId = ethernet(number, subPort);
    return true;
  }
  if (text.starts_with(vlanPrefix)) {
    if (!parsePositive(text.substr(vlanPrefix.size()), maxVlanId, number)) {
      return false;
    }
    intfId = vlan(number);
    return true;
  }
  struct NumberedName {
    std::string_view prefix;
    Family family;
  };
  static constexpr std::array<NumberedName, 4> numberedNames{{
      {nexthopGroupPrefix, familyNexthopGroup},
      {dynamicTunnelPrefix, familyDynamicTunnel},
      {pseudowirePrefix, familyPseudowire},
      {portPseudowirePrefix, familyPortPseudowire},
  }};
  for (const auto& [prefix, family] : numberedNames) {
    if (text.starts_with(prefix)) {
      if (!parseDecimal(text.substr(prefix.size()), maxNumber, number)) {
        return false;
      }
      intfId = IntfId(family, number);
      return true;
    }
  }
  return false;
}

IntfId IntfId::fromString(std::string_view text) {
  IntfId intfId;
  if (!parse(text, intfId)) {
    throw std::invalid_argument(fmt::format(
        "bad interface name '{}': expected Null0, Ethernet<port>, Ethernet<port>/<sub-port>, "
        "Vlan<1-4094>, NexthopGroup<n>, DynamicTunnel<n>, Pseudowire<n> or PortPseudowire<n>",
        text));
  }
  return intfId;
}

bool IntfId::isNull0() const { return family() == familyNull0; }

bool IntfId::isEthernet() const { return family() == familyEthernet; }

bool IntfId::isVlan() const { return family() == familyVlan; }

std::uint32_t IntfId::number() const {
  return isEthernet() ? numbers() >> ethernetPortShift : numbers();
}

std::uint16_t IntfId::vlanId() const {
  return isVlan() ? static_cast<std::uint16_t>(numbers()) : 0;
}

std::uint32_t IntfId::ethernetSubPort() const {
  return isEthernet() ? numbers() & maxEthernetSubPort : 0;
}

fmt::appender IntfId::formatTo(fmt::appender out) const {
  switch (family()) {
    case familyUnset:
      return out;
    case familyNull0:
      return fmt::format_to(out, "{}", null0Name);
    case familyEthernet:
      if (ethernetSubPort() != 0) {
        return fmt::format_to(out, "{}{}/{}", ethernetPrefix, number(), ethernetSubPort());
      }
      return fmt::format_to(out, "{}{}", ethernetPrefix, number());
    case familyVlan:
      return fmt::format_to(out, "{}{}", vlanPrefix, number());
    case familyNexthopGroup:
      return fmt::format_to(out, "{}{}", nexthopGroupPrefix, number());
    case familyDynamicTunnel:
      return fmt::format_to(out, "{}{}", dynamicTunnelPrefix, number());
    case familyPseudowire:
      return fmt::format_to(out, "{}{}", pseudowirePrefix, number());
    case familyPortPseudowire:
      return fmt::format_to(out, "{}{}", portPseudowirePrefix, number());
  }
  return fmt::format_to(out, "invalid({:#010x})", value_);
}

std::string IntfId::stringValue() const { return fmt::to_string(*this); }

std::size_t IntfId::hash() const { return hashMix(value_); }

bool FecIdIntfId::isNexthopGroupIdIntfId(IntfId intfId) {
  return intfId.family() == IntfId::familyNexthopGroup;
}

bool DynamicTunnelIntfId::isDynamicTunnelIntfId(IntfId intfId) {
  return intfId.family() == IntfId::familyDynamicTunnel;
}

bool PseudowireIntfId::isPseudowireIntfId(IntfId intfId) {
  return intfId.family() == IntfId::familyPseudowire ||
         intfId.family() == IntfId::familyPortPseudowire;
}

bool PseudowireIntfId::isPortPseudowireIntfId(IntfId intfId) {
  return intfId.family() == IntfId::familyPortPseudowire;
}

std::ostream& operator<<(std::ostream& os, IntfId intfId) { return os << intfId.stringValue(); }

}  // namespace Bexo
