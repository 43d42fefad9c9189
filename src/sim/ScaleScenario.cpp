#include "sim/ScaleScenario.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <stdexcept>

namespace Sim {

namespace {

constexpr uint32_t kFirstLabel = 16;
constexpr uint32_t kRoutedPorts = 8;
constexpr uint16_t kFirstVlan = 100;
constexpr uint32_t kNextHopsPerVlan = 250;

// splitmix64: a fixed generator, so the output does not depend on the
// standard library's distributions.
struct Rng {
  uint64_t state;
  uint64_t next() {
    uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
};

void checkShape(const ScaleShape& s) {
  auto bad = [](std::string_view what) { throw std::invalid_argument(std::string(what)); };
  if (s.routes == 0 || s.viaSets == 0 || s.nextHops == 0 || s.ecmp == 0) {
    bad("routes, via sets, next hops and ECMP width must all be at least 1");
  }
  if (s.ecmp > s.nextHops) bad("ECMP width cannot exceed the number of next hops");
  if (s.ecmp > Mpls::kMaxViasPerSet) bad("ECMP width cannot exceed 128");
  if (s.viaSets > s.routes) bad("there cannot be more via sets than routes");
  if (s.routes > Bexo::MplsLabel::maxValue - kFirstLabel) bad("more routes than labels");
  if (s.nextHops > 60000) bad("at most 60000 next hops");
  if (s.vlanShare < 0 || s.vlanShare > 1) bad("the VLAN share is a fraction from 0 to 1");
}

struct NextHop {
  Bexo::IpGenAddr addr;
  Bexo::IntfId intf;
  Bexo::EthAddr mac;
  bool behindVlan;
};

std::vector<NextHop> makeNextHops(const ScaleShape& s, Scenario& out) {
  uint32_t vlanHops = static_cast<uint32_t>(s.vlanShare * s.nextHops);
  std::vector<NextHop> hops;
  for (uint32_t i = 1; i <= kRoutedPorts; ++i) {
    out.inputs.interfaces.push_back(
        InterfaceSpec{Bexo::IntfId::ethernet(i), static_cast<uint16_t>(1000 + i), true, true});
  }
  for (uint32_t v = 0; v * kNextHopsPerVlan < vlanHops; ++v) {
    uint16_t vlan = static_cast<uint16_t>(kFirstVlan + v);
    out.inputs.interfaces.push_back(InterfaceSpec{Bexo::IntfId::vlan(vlan), vlan, true, false});
  }
  for (uint32_t h = 0; h < s.nextHops; ++h) {
    NextHop hop;
    hop.addr = Bexo::IpGenAddr::fromIpv4((10u << 24) | (h + 1));
    hop.behindVlan = h < vlanHops;
    uint16_t vlan = static_cast<uint16_t>(kFirstVlan + h / kNextHopsPerVlan);
    hop.intf =
        hop.behindVlan ? Bexo::IntfId::vlan(vlan) : Bexo::IntfId::ethernet(1 + h % kRoutedPorts);
    hop.mac = Bexo::EthAddr({0x02, 0, 0, static_cast<uint8_t>(h >> 16),
                             static_cast<uint8_t>(h >> 8), static_cast<uint8_t>(h)});
    out.inputs.arp.push_back(ArpSpec{Arp::Table::ArpKey(hop.addr, hop.intf), hop.mac});
    if (hop.behindVlan) {
      out.inputs.fdb.push_back(
          FdbSpec{Bridging::HostKey(vlan, hop.mac), Bexo::IntfId::ethernet(9 + h % kRoutedPorts)});
    }
    hops.push_back(hop);
  }
  return hops;
}

}  // namespace

Scenario scaleScenario(const ScaleShape& s) {
  checkShape(s);
  Scenario out;
  out.file = "<generated>";
  out.mode = s.mode;
  std::vector<NextHop> hops = makeNextHops(s, out);
  Rng rng{s.seed};
  std::vector<uint32_t> picked;
  for (uint32_t v = 1; v <= s.viaSets; ++v) {
    ViaSetSpec set;
    set.id = v;
    set.type = Mpls::LfibViaType::viaTypeMplsIp;
    picked.clear();
    while (picked.size() < s.ecmp) {
      uint32_t h = rng.below(s.nextHops);
      if (std::find(picked.begin(), picked.end(), h) == picked.end()) picked.push_back(h);
    }
    std::sort(picked.begin(), picked.end());
    for (uint32_t h : picked) {
      ViaSpec via;
      via.nextHop = hops[h].addr;
      via.intf = hops[h].intf;
      via.labelOperation = Bexo::UnboundedMplsLabelOperation(
          Bexo::mplsActionSwap, Bexo::MplsLabelStack{Bexo::MplsLabel(100000 + h)});
      set.vias.push_back(via);
    }
    out.inputs.viaSets.push_back(std::move(set));
  }
  uint64_t perSet = s.routes / s.viaSets;
  uint64_t extra = s.routes % s.viaSets;
  uint32_t label = kFirstLabel;
  for (uint32_t v = 1; v <= s.viaSets; ++v) {
    uint64_t count = perSet + (v <= extra ? 1 : 0);
    RouteRange range;
    range.first = label;
    range.last = static_cast<uint32_t>(label + count - 1);
    range.viaSet = v;
    out.inputs.routes.push_back(range);
    label += static_cast<uint32_t>(count);
  }
  out.driver.routeCapacity = std::max<uint64_t>(out.driver.routeCapacity, s.routes);
  out.driver.l2AdjCapacity = std::max<uint64_t>(out.driver.l2AdjCapacity, s.viaSets);
  out.fecAllocator.capacity = std::max<uint64_t>(out.fecAllocator.capacity, s.viaSets);
  return out;
}

void writeScenario(const Scenario& sc, std::ostream& out) {
  fmt::print(out, "mode: {}\n", sc.mode == ProgrammingMode::direct ? "direct" : "mediated");
  fmt::print(out, "platform:\n  driver: {{routeCapacity: {}, l2AdjCapacity: {}}}\n",
             sc.driver.routeCapacity, sc.driver.l2AdjCapacity);
  if (sc.mode == ProgrammingMode::mediated) {
    fmt::print(out, "  fecAllocator: {{capacity: {}}}\n", sc.fecAllocator.capacity);
  }
  fmt::print(out, "interfaces:\n");
  for (const InterfaceSpec& i : sc.inputs.interfaces) {
    if (i.routedPort) {
      fmt::print(out, "  - {{name: {}, vlan: {}}}\n", i.name, i.vlan);
    } else {
      fmt::print(out, "  - {{name: {}}}\n", i.name);
    }
  }
  fmt::print(out, "arp:\n");
  for (const ArpSpec& a : sc.inputs.arp) {
    fmt::print(out, "  - {{ip: {}, interface: {}, mac: \"{}\"}}\n", a.key.addr, a.key.intf, a.mac);
  }
  if (!sc.inputs.fdb.empty()) {
    fmt::print(out, "fdb:\n");
    for (const FdbSpec& f : sc.inputs.fdb) {
      fmt::print(out, "  - {{vlan: {}, mac: \"{}\", port: {}}}\n", f.key.fid, f.key.mac, f.port);
    }
  }
  fmt::print(out, "viaSets:\n");
  for (const ViaSetSpec& v : sc.inputs.viaSets) {
    fmt::print(out, "  - {{id: {}, type: mplsIp, vias: [", v.id);
    for (size_t i = 0; i < v.vias.size(); ++i) {
      const ViaSpec& via = v.vias[i];
      fmt::print(out, "{}{{nexthop: {}, interface: {}, action: swap, labels: [{}]}}", i ? ", " : "",
                 via.nextHop, via.intf, via.labelOperation.labelStack()[0]);
    }
    fmt::print(out, "]}}\n");
  }
  fmt::print(out, "routes:\n");
  for (const RouteRange& r : sc.inputs.routes) {
    if (r.first == r.last) {
      fmt::print(out, "  - {{label: {}, viaSet: {}}}\n", r.first, r.viaSet);
    } else {
      fmt::print(out, "  - {{labels: {}-{}, viaSet: {}}}\n", r.first, r.last, r.viaSet);
    }
  }
}

}  // namespace Sim
