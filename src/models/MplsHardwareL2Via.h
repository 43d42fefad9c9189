#pragma once

// A resolved layer-2 via, as the hardware layer-2 adjacency record carries it:
// egress interface, destination MAC, VLAN, the one label pushed or swapped,
// the weight and, for the reader's benefit, the next hop it was resolved from.
// 44 bytes, a layout shared with the driver:
//   0 intf (4) | 4 mac (6) | 10 vlan (2) | 12 label (4) | 16 weight (4)
//   20 next-hop address (16) | 36 address family (1) | 37 reserved (7)

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/MplsLabel.h"

namespace Mpls::Hardware {

struct L2Via {
  Bexo::IntfId intf;
  Bexo::EthAddr mac;
  uint16_t vlan = 0;
  Bexo::MplsLabel label;
  uint32_t weight = 1;
  std::array<uint8_t, 16> nextHopBytes{};
  uint8_t nextHopFamily = 0;
  uint8_t reserved[7] = {};

  L2Via() = default;
  L2Via(Bexo::IntfId i, Bexo::EthAddr m, uint16_t v, Bexo::MplsLabel l, uint32_t w,
        const Bexo::IpGenAddr& nextHop);
  Bexo::IpGenAddr nextHop() const;
  std::string stringValue() const;
  friend bool operator==(const L2Via& a, const L2Via& b);
  size_t hash() const;
};
static_assert(sizeof(L2Via) == 44);

// The resolved vias of one layer-3 adjacency, kept in a canonical order: the
// key by which adjacencies share one layer-2 adjacency. A via counts here by
// what the hardware forwards with (interface, MAC, VLAN, label, weight), not
// by the next hop it came from: next hops that resolve to the same of these
// are one via, and adjacencies through them share one record, which shows the
// next hop of the via that was added first.
class L2ViaSet {
 public:
  void l2ViaIs(const L2Via& via);
  // Keeps the room, for a set refilled over and over.
  void clear() { vias_.clear(); }
  const std::vector<L2Via>& l2Vias() const { return vias_; }
  size_t size() const { return vias_.size(); }
  bool empty() const { return vias_.empty(); }
  std::string stringValue() const;
  size_t hash() const;
  friend bool operator==(const L2ViaSet& a, const L2ViaSet& b);

 private:
  std::vector<L2Via> vias_;
};

}  // namespace Mpls::Hardware

template <>
struct std::hash<Mpls::Hardware::L2ViaSet> {
  size_t operator()(const Mpls::Hardware::L2ViaSet& s) const noexcept { return s.hash(); }
};
