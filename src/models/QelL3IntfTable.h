#pragma once

// "qel/l3IntfTable": the agent's layer-3 interfaces and how the hardware
// sees each: the VLAN that carries it (a routed port's internal VLAN, or the
// VLAN of a VLAN interface), whether the hardware can program it, and whether
// it is a routed port.

#include <cstdint>

#include "bexo/IntfId.h"
#include "kiv/Entity.h"

namespace QelL3Intf {

struct L3Id {
  uint16_t vlanId = 0;
  bool hwSupported = false;
  bool routedPort = false;
  explicit operator bool() const { return !(*this == L3Id()); }
  friend bool operator==(const L3Id&, const L3Id&) = default;
};

class Table : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "QelL3Intf::Table";
  KIV_ORDERED_COLL(Bexo::IntfId, L3Id, intfIdToL3Id, IntfIdToL3Id)

  bool isHwSupportedIntf(Bexo::IntfId intf) const { return intfIdToL3Id(intf).hwSupported; }
  bool isRoutedPort(Bexo::IntfId intf) const { return intfIdToL3Id(intf).routedPort; }
};

}  // namespace QelL3Intf
