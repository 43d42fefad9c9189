#include "models/MplsHardwareL2Via.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <tuple>

namespace Mpls::Hardware {

namespace {
auto forwardingTie(const L2Via& v) { return std::tie(v.intf, v.mac, v.vlan, v.label, v.weight); }

auto tie(const L2Via& v) {
  return std::tuple_cat(forwardingTie(v), std::tie(v.nextHopBytes, v.nextHopFamily));
}

bool forwardsBefore(const L2Via& a, const L2Via& b) { return forwardingTie(a) < forwardingTie(b); }

void mix(size_t& h, size_t v) { h ^= v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2); }

size_t forwardingHash(const L2Via& v) {
  size_t h = std::hash<Bexo::IntfId>{}(v.intf);
  mix(h, std::hash<Bexo::EthAddr>{}(v.mac));
  mix(h, v.vlan);
  mix(h, v.label.value());
  mix(h, v.weight);
  return h;
}
}  // namespace

L2Via::L2Via(Bexo::IntfId i, Bexo::EthAddr m, uint16_t v, Bexo::MplsLabel l, uint32_t w,
             const Bexo::IpGenAddr& nh)
    : intf(i), mac(m), vlan(v), label(l), weight(w) {
  nextHopFamily = static_cast<uint8_t>(nh.af());
  auto bytes = nh.bytes();
  std::copy(bytes.begin(), bytes.end(), nextHopBytes.begin());
}

Bexo::IpGenAddr L2Via::nextHop() const {
  if (nextHopFamily == Bexo::afIpv4) {
    return Bexo::IpGenAddr::fromIpv4(uint32_t{nextHopBytes[0]} << 24 |
                                     uint32_t{nextHopBytes[1]} << 16 |
                                     uint32_t{nextHopBytes[2]} << 8 | nextHopBytes[3]);
  }
  if (nextHopFamily == Bexo::afIpv6) return Bexo::IpGenAddr::fromIpv6(nextHopBytes);
  return Bexo::IpGenAddr();
}

bool operator==(const L2Via& a, const L2Via& b) { return tie(a) == tie(b); }

size_t L2Via::hash() const {
  size_t h = forwardingHash(*this);
  uint64_t lo, hi;
  std::memcpy(&lo, nextHopBytes.data(), 8);
  std::memcpy(&hi, nextHopBytes.data() + 8, 8);
  mix(h, lo);
  mix(h, hi);
  return h;
}

std::string L2Via::stringValue() const {
  return fmt::format("{} mac {} vlan {} label {} weight {}", intf, mac, vlan, label, weight);
}

void L2ViaSet::l2ViaIs(const L2Via& via) {
  auto it = std::lower_bound(vias_.begin(), vias_.end(), via, forwardsBefore);
  if (it != vias_.end() && !forwardsBefore(via, *it)) return;
  vias_.insert(it, via);
}

bool operator==(const L2ViaSet& a, const L2ViaSet& b) {
  return std::equal(
      a.vias_.begin(), a.vias_.end(), b.vias_.begin(), b.vias_.end(),
      [](const L2Via& x, const L2Via& y) { return forwardingTie(x) == forwardingTie(y); });
}

std::string L2ViaSet::stringValue() const {
  std::string out = "[";
  for (size_t i = 0; i < vias_.size(); ++i) {
    if (i) out += ", ";
    out += vias_[i].stringValue();
  }
  return out + "]";
}

size_t L2ViaSet::hash() const {
  size_t h = vias_.size();
  for (const L2Via& v : vias_) h = h * 1000003 ^ forwardingHash(v);
  return h;
}

}  // namespace Mpls::Hardware
