#pragma once

// The ARP library's neighbour table ("arp/status") and the proactive-ARP
// client table ("arp/proactive/config/qelMpls") through which a client asks
// for next hops to be resolved ahead of traffic.

#include <functional>
#include <string>

#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"

namespace Arp::Table {

struct ArpKey {
  Bexo::IpGenAddr addr;
  Bexo::IntfId intf;
  ArpKey() = default;
  ArpKey(Bexo::IpGenAddr a, Bexo::IntfId i) : addr(a), intf(i) {}
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == ArpKey()); }
  friend bool operator==(const ArpKey&, const ArpKey&) = default;
  friend auto operator<=>(const ArpKey&, const ArpKey&) = default;
};

struct ArpEntry {
  ArpKey key;
  Bexo::EthAddr mac;
  explicit operator bool() const { return !(*this == ArpEntry()); }
  friend bool operator==(const ArpEntry&, const ArpEntry&) = default;
};

}  // namespace Arp::Table

namespace Arp::ProactiveArp {

// One request to keep a next hop resolved.
struct Request {
  Table::ArpKey key;
  explicit operator bool() const { return !(*this == Request()); }
  friend bool operator==(const Request&, const Request&) = default;
};

}  // namespace Arp::ProactiveArp

template <>
struct std::hash<Arp::Table::ArpKey> {
  size_t operator()(const Arp::Table::ArpKey& k) const noexcept {
    return std::hash<Bexo::IpGenAddr>{}(k.addr) * 31 + std::hash<Bexo::IntfId>{}(k.intf);
  }
};
