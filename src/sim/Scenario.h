#pragma once

// A scenario as read from its file: the switch's inputs, how the simulated
// platform answers, what happens over time and what must hold at the end.
// Plain values, checked by the parser, so the simulator never has to second-
// guess them: every via set a route names exists, every address parsed.
//
// Routes are kept as label ranges (a single label is a range of one): a
// scale scenario of a million labels costs one entry, not a million.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "bexo/EthAddr.h"
#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "bexo/UnboundedMplsLabelOperation.h"
#include "models/Arp.h"
#include "models/Bridging.h"
#include "models/MplsLfib.h"
#include "models/MplsRouteKey.h"

namespace Sim {

// A layer-3 interface: a routed port with its internal VLAN, or a VLAN
// interface carried by its own VLAN.
struct InterfaceSpec {
  Bexo::IntfId name;
  uint16_t vlan = 0;
  bool hwSupported = true;
  bool routedPort = false;
  friend bool operator==(const InterfaceSpec&, const InterfaceSpec&) = default;
};

// A neighbour on the wire: it answers ARP for its address with its MAC.
struct ArpSpec {
  Arp::Table::ArpKey key;
  Bexo::EthAddr mac;
  friend bool operator==(const ArpSpec&, const ArpSpec&) = default;
};

struct FdbSpec {
  Bridging::HostKey key;
  Bexo::IntfId port;
  friend bool operator==(const FdbSpec&, const FdbSpec&) = default;
};

// One via; which fields count depends on the via set's type.
struct ViaSpec {
  Bexo::IpGenAddr nextHop;
  Bexo::IntfId intf;
  Bexo::UnboundedMplsLabelOperation labelOperation;
  Mpls::PayloadType payload = Mpls::PayloadType::payloadMpls;
  uint32_t weight = 1;
  uint64_t fecId = 0;
  std::string vrf;
  uint16_t vlan = 0;
  Bexo::IntfId pwIntf;
  friend bool operator==(const ViaSpec&, const ViaSpec&) = default;
};

struct ViaSetSpec {
  // Via keys are derived from the set's id and the via's position, so ids
  // stay below this bound.
  static constexpr uint32_t kMaxId = (uint32_t{1} << 25) - 1;

  uint32_t id = 0;
  Mpls::LfibViaType type = Mpls::LfibViaType::viaTypeUnknown;
  uint32_t backup = 0;
  bool usableAsPrimary = true;
  std::vector<ViaSpec> vias;

  Mpls::LfibViaSetKey key() const { return Mpls::LfibViaSetKey(type, id); }
  Mpls::LfibViaKey viaKey(uint32_t position) const;
  friend bool operator==(const ViaSetSpec&, const ViaSetSpec&) = default;
};

// Routes first..last (inclusive) of one source, all using one via set.
struct RouteRange {
  uint32_t first = 0;
  uint32_t last = 0;
  Mpls::LfibSource source = Mpls::kDefaultLfibSource;
  uint32_t viaSet = 0;

  uint64_t size() const { return uint64_t{last} - first + 1; }
  Mpls::RouteKey routeKey(uint32_t label) const {
    return Mpls::RouteKey(Bexo::MplsLabel(label), source);
  }
  friend bool operator==(const RouteRange&, const RouteRange&) = default;
};

// What the initial state and a `set` step carry.
struct InputSections {
  std::vector<InterfaceSpec> interfaces;
  std::vector<ArpSpec> arp;
  std::vector<FdbSpec> fdb;
  std::vector<std::string> vrfs;
  std::vector<ViaSetSpec> viaSets;
  std::vector<RouteRange> routes;
};

// What a `delete` step carries: keys only (a route range's via set is unused).
struct InputKeys {
  std::vector<Bexo::IntfId> interfaces;
  std::vector<Arp::Table::ArpKey> arp;
  std::vector<Bridging::HostKey> fdb;
  std::vector<std::string> vrfs;
  std::vector<uint32_t> viaSets;
  std::vector<RouteRange> routes;
};

struct RoutingSpec {
  std::optional<bool> mpls;
  std::optional<bool> allowDefaultRoute;
};

struct DriverSpec {
  std::optional<uint64_t> routeCapacity;
  std::optional<uint64_t> l2AdjCapacity;
  std::optional<double> answerDelay;
  std::optional<bool> answer;
  std::optional<std::set<uint32_t>> failLabels;
};

// How the simulated driver answers.
struct DriverConfig {
  uint64_t routeCapacity = 1000000;
  uint64_t l2AdjCapacity = 65536;
  double answerDelay = 0.0;
  bool answer = true;
  std::set<uint32_t> failLabels;

  void apply(const DriverSpec& given);
  friend bool operator==(const DriverConfig&, const DriverConfig&) = default;
};

struct FecAllocatorSpec {
  std::optional<double> answerDelay;
  std::optional<bool> answer;
  std::optional<uint64_t> capacity;
};

// How the simulated FEC allocator answers.
struct FecAllocatorConfig {
  double answerDelay = 0.0;
  bool answer = true;
  uint64_t capacity = 65536;

  void apply(const FecAllocatorSpec& given);
  friend bool operator==(const FecAllocatorConfig&, const FecAllocatorConfig&) = default;
};

struct PlatformSpec {
  DriverSpec driver;
  FecAllocatorSpec fecAllocator;
};

struct Step {
  double at = 0.0;
  int line = 0;
  std::optional<InputKeys> del;
  std::optional<InputSections> set;
  std::optional<RoutingSpec> routing;
  std::optional<PlatformSpec> platform;
  bool restartAgent = false;
};

// One expected layer-2 via; unset fields are not checked.
struct L2ViaExpect {
  std::optional<Bexo::EthAddr> mac;
  std::optional<uint16_t> vlan;
  std::optional<Bexo::IntfId> intf;
  std::optional<uint32_t> label;
  std::optional<uint32_t> weight;
};

struct RouteExpect {
  Mpls::RouteKey key;
  int line = 0;
  bool absent = false;
  std::optional<std::string> state;
  std::optional<std::string> reason;
  std::optional<std::vector<L2ViaExpect>> l2;
  // hardware or l2Adjacency.
  std::optional<std::string> adjIdType;
  // valid, invalid or a number.
  std::optional<std::string> hwFecId;
};

struct CounterExpect {
  std::string name;
  uint64_t value = 0;
  int line = 0;
};

struct Expectations {
  std::optional<uint64_t> programmed;
  int programmedLine = 0;
  std::optional<uint64_t> unprogrammed;
  int unprogrammedLine = 0;
  std::vector<RouteExpect> routes;
  std::optional<uint64_t> l2Adjacencies;
  int l2AdjacenciesLine = 0;
  std::vector<std::string> log;
  int logLine = 0;
  std::vector<CounterExpect> counters;
};

enum class ProgrammingMode { direct, mediated };

struct Scenario {
  std::string file;
  ProgrammingMode mode = ProgrammingMode::direct;
  int modeLine = 0;
  bool mplsRouting = true;
  bool allowDefaultRoute = false;
  InputSections inputs;
  DriverConfig driver;
  FecAllocatorConfig fecAllocator;
  std::vector<Step> steps;
  std::optional<Expectations> expect;
};

}  // namespace Sim
