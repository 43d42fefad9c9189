#pragma once

// The neighbouring libraries' shared-memory entities: the transit LFIB and
// the LFIB hardware status (MPLS), the ARP table and the proactive-ARP client
// table (ARP), and the MAC table (bridging). Each is constructed over a path
// already mounted in a Vosh::EntityManager, as writer or reader; the same
// class serves the producer and the consumer. docs/inputs.md says who writes
// each and what its records hold.

#include <string>
#include <vector>

#include "kiv/Entity.h"
#include "models/Arp.h"
#include "models/Bridging.h"
#include "models/MplsLfib.h"
#include "models/VoshTable.h"
#include "vosh/Mount.h"

namespace Mpls {

// Codes the LFIB producer reads back for a route this library could not
// program. 0 is success; 2 means the VRF a decapsulation route needs is missing.
enum class LfibHwProgrammingReturnCode : uint32_t {
  success = 0,
  hwFailure = 1,
  vrfMissing = 2,
  resourceFull = 3,
  notSupported = 4,
};

struct LfibHwUnprogrammedRoute {
  RouteKey routeKey;
  LfibHwProgrammingReturnCode code = LfibHwProgrammingReturnCode::success;
  uint32_t reserved = 0;
  friend bool operator==(const LfibHwUnprogrammedRoute&, const LfibHwUnprogrammedRoute&) = default;
};

struct LfibViaSetHwStatus {
  LfibViaSetKey viaSetKey;
  uint32_t programmed = 0;
  uint32_t reserved = 0;
  friend bool operator==(const LfibViaSetHwStatus&, const LfibViaSetHwStatus&) = default;
};

class LfibStatus : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  LfibStatus(Vosh::EntityManager& em, std::string_view path);

  VOSH_TABLE(RouteKey, LfibRoute, route, Route)
  VOSH_TABLE(LfibViaSetKey, LfibViaSet, viaSet, ViaSet)
  VOSH_TABLE(LfibViaKey, LfibMplsVia, mplsVia, MplsVia)
  VOSH_TABLE(LfibViaKey, LfibExternalFecVia, extFecVia, ExtFecVia)
  VOSH_TABLE(LfibViaKey, LfibIpLookupVia, ipLookupVia, IpLookupVia)
  VOSH_TABLE(LfibViaKey, LfibVlanVia, vlanVia, VlanVia)
  VOSH_TABLE(LfibViaKey, LfibEvpnVlanAwareVia, evpnVlanAwareVia, EvpnVlanAwareVia)
  VOSH_TABLE(LfibViaKey, LfibPwVia, pwVia, PwVia)
  VOSH_TABLE(LfibDot1qTagToVlanKey, LfibDot1qTagToVlan, dot1qTagToVlan, Dot1qTagToVlan)

  void routeIs(const LfibRoute& r) { routeIs(r.routeKey, r); }
  void viaSetIs(const LfibViaSet& v) { viaSetIs(v.key(), v); }
  void mplsViaIs(const LfibMplsVia& v) { mplsViaIs(v.viaKey, v); }
};

class LfibHwStatus : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  LfibHwStatus(Vosh::EntityManager& em, std::string_view path);

  VOSH_TABLE(RouteKey, LfibHwUnprogrammedRoute, unprogrammedRoute, UnprogrammedRoute)
  VOSH_TABLE(LfibViaSetKey, LfibViaSetHwStatus, viaSet, ViaSet)

  void unprogrammedRouteIs(const RouteKey& k, LfibHwProgrammingReturnCode code) {
    unprogrammedRouteIs(k, LfibHwUnprogrammedRoute{k, code, 0});
  }
};

}  // namespace Mpls

namespace Arp::Table {

class Status : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  Status(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(ArpKey, ArpEntry, arpEntry, ArpEntry)
  void arpEntryIs(const ArpEntry& e) { arpEntryIs(e.key, e); }
};

}  // namespace Arp::Table

namespace Arp::ProactiveArp {

class ClientConfig : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  ClientConfig(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(Table::ArpKey, Request, request, Request)
};

}  // namespace Arp::ProactiveArp

namespace Vosh::Bridging {

class Status : public Kiv::Entity {
 public:
  static std::vector<Vosh::CollectionDecl> collections();
  Status(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(::Bridging::HostKey, ::Bridging::HostEntry, hostEntry, HostEntry)
  void hostEntryIs(const ::Bridging::HostEntry& e) { hostEntryIs(e.key, e); }
};

}  // namespace Vosh::Bridging
