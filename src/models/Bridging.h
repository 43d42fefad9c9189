#pragma once

// The bridging library's MAC table as published in shared memory
// ("bridging/status"): per (VLAN, MAC) host key, the port it was learnt on.

#include <cstdint>
#include <functional>
#include <string>

#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"

namespace Bridging {

using VlanId = uint16_t;

// A VLAN id, or none (0 is not a usable VLAN).
struct VlanIdOrNone {
  VlanId value = 0;
  bool isNone() const { return value == 0; }
  friend bool operator==(const VlanIdOrNone&, const VlanIdOrNone&) = default;
};

struct HostKey {
  VlanId fid = 0;
  uint16_t reserved = 0;
  Bexo::EthAddr mac;
  HostKey() = default;
  HostKey(VlanId f, Bexo::EthAddr m) : fid(f), mac(m) {}
  std::string stringValue() const;
  explicit operator bool() const { return !(*this == HostKey()); }
  friend bool operator==(const HostKey& a, const HostKey& b) {
    return a.fid == b.fid && a.mac == b.mac;
  }
  friend auto operator<=>(const HostKey& a, const HostKey& b) {
    if (a.fid != b.fid) return a.fid <=> b.fid;
    return a.mac <=> b.mac;
  }
};

// One learnt or configured MAC entry.
struct HostEntry {
  HostKey key;
  Bexo::IntfId intf;
  explicit operator bool() const { return !(*this == HostEntry()); }
  friend bool operator==(const HostEntry& a, const HostEntry& b) {
    return a.key == b.key && a.intf == b.intf;
  }
};

}  // namespace Bridging

template <>
struct std::hash<Bridging::HostKey> {
  size_t operator()(const Bridging::HostKey& k) const noexcept {
    return std::hash<Bexo::EthAddr>{}(k.mac) * 31 + k.fid;
  }
};
