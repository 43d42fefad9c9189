#pragma once

// A switch built in stages for the library's tests: the platform side
// (LFIB, ARP, MAC table and interface producers, a driver that answers the
// hardware tables and a FEC allocator that answers FEC requests) around a
// root state machine in the direct or the mediated mode, all on one
// virtual-time scheduler. The root's core can be stopped and built again over
// the same mounted inputs, which is what an agent restart looks like from the
// hardware's side.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "Qel/FeatureToggle.h"
#include "QelMpls/root/QelMplsRootSm.h"
#include "korba/EntityManager.h"
#include "models/FecRequest.h"
#include "vosh/EntityManager.h"

namespace QelTest {

// Answers the hardware tables the way a driver does: every route record and
// layer-2 record gets a status carrying the version it answered. A route
// record is valid when it points at a layer-2 record that exists or at a
// hardware FEC.
class TestDriver {
 public:
  // Without `ownsStatus` the agent writes the status table and nothing answers.
  TestDriver(Vosh::EntityManager& platform, bool ownsStatus);
  void attach();
  // Routes beyond this many are refused as route-full (with the resource flag).
  size_t routeCapacity = 1000000;
  bool answer = true;
  std::set<uint32_t> failLabels;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> config;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus> status;
  void answerRoute(const Mpls::RouteKey& key);
  // A status of the test's choosing; route-full carries the resource flag.
  void routeStatusIs(
      const Mpls::RouteKey& key, uint8_t version, Vosh::Qel::MplsHwRouteState state,
      Vosh::Qel::MplsHwRouteUnprogrammedReason reason = Vosh::Qel::mplsHwUnprogReasonSuccess);
  size_t programmedRoutes() const { return programmed_.size(); }

 private:
  void answerL2Adjacency(uint64_t id);
  Vosh::EntityManager& platform_;
  std::set<Mpls::RouteKey> programmed_;
  Kiv::Connection routeConnection_;
  Kiv::Connection l2Connection_;
};

// Grants hardware FEC ids the way a platform's FEC allocator does: it owns the
// answer tables (so it exists before the agent), answers each request with a
// hardware id fixed by the FEC id and a copy of the request, withdraws the
// answer with the request, and reports a generation's adjacencies synchronised
// once that generation is declared ready and every request is answered.
class TestFecAllocator {
 public:
  TestFecAllocator(Vosh::EntityManager& platform, Korba::EntityManager& korba, bool ownsResponses);
  void attach();
  // Answers what was filed while `answer` was off.
  void answerAll();
  static uint64_t hwFecIdOf(Vosh::Fib::FecId fecId) { return 0x10000 + fecId.index(); }
  bool answer = true;
  Kiv::Ptr<Qel::FecIdToHwFecIdRequest> requests;
  Kiv::Ptr<Qel::FecIdToHwFecIdResponse> responses;

 private:
  void answerRequest(const Vosh::Fib::FecId& fecId);
  void maybeReportSync();
  Vosh::EntityManager& platform_;
  Korba::EntityManager& korba_;
  Kiv::Connection requestConnection_;
  Kiv::Connection readyConnection_;
};

// A helper for a platform that may keep forwarding across an agent restart.
class TestHelper : public QelHelper::MplsSmHelper {
 public:
  using QelHelper::MplsSmHelper::MplsSmHelper;
  bool mplsNonStopForwardingSupported() const override { return nonStopForwarding; }
  bool nonStopForwarding = false;
};

class SwitchFixture : public ::testing::Test {
 protected:
  // Without `platformAnswersHardware` the platform owns no hardware status or
  // FEC-id response table: the agent writes them itself.
  explicit SwitchFixture(bool platformAnswersHardware = true);
  ~SwitchFixture() override;

  void createRoot() {
    Vosh::EntityManager::agentEntityManagerIs(agentShm.get());
    root = Qel::mplsRootSmFactory(modeConfig, helper, korba, attrLog, &scheduler, localLfibInfo,
                                  hwConfig, hwStatus);
  }
  // Creates the root and lets it mount and build its state machines.
  void startAgent(
      Qel::MplsSmAdjacencyProgrammer mode = Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect);
  // Lets every reaction, review pass and driver answer due in the next half second run.
  void settle() { scheduler.advance(0.5); }
  void advance(double seconds) { scheduler.advance(seconds); }
  // Steps the clock until the core has run exactly `passes` more review
  // passes, so that the state between two passes can be looked at.
  void runReviewPasses(uint64_t passes);

  // An agent restart as the root sees it: the programmer goes to none (the
  // state machines go, every mounted entity stays) and back. startCore
  // returns as soon as the new core is built, before any of its tasks ran.
  void stopCore() {
    modeConfig->adjacencyProgrammerIs(Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone);
  }
  void startCore();

  // Writes a toggle file in a directory of this test's own and makes the
  // process read toggles from there.
  void featureToggleIs(const std::string& file, const std::string& toggle, bool value);

  // Inputs.
  // Next hops 10.0.0.2 behind routed port Ethernet1 (VLAN 1006), 10.0.1.2
  // behind Ethernet2 (1007), and 10.0.2.2 and 10.0.2.3 behind VLAN 100, whose
  // MAC table puts both on Ethernet3.
  void hostsAre();
  void interfaceIs(const std::string& name, uint16_t vlan, bool routedPort = true) {
    l3Intfs->intfIdToL3IdIs(Bexo::IntfId::fromString(name),
                            QelL3Intf::L3Id{vlan, true, routedPort});
  }
  void arpIs(const std::string& ip, const std::string& intf, const std::string& mac) {
    arp->arpEntryIs(Arp::Table::ArpEntry{
        Arp::Table::ArpKey(Bexo::IpGenAddr::fromString(ip), Bexo::IntfId::fromString(intf)),
        Bexo::EthAddr::fromString(mac)});
  }
  void fdbIs(uint16_t vlan, const std::string& mac, const std::string& port) {
    fdb->hostEntryIs(Bridging::HostEntry{Bridging::HostKey(vlan, Bexo::EthAddr::fromString(mac)),
                                         Bexo::IntfId::fromString(port)});
  }
  // A via set of MPLS-over-IP vias: "nexthop intf label" each, swapping.
  void mplsViaSetIs(uint32_t id,
                    const std::vector<std::tuple<std::string, std::string, uint32_t>>& vias,
                    uint32_t backupViaSet = 0);
  static Mpls::LfibMplsVia mplsVia(const std::string& nextHop, const std::string& intf,
                                   Bexo::MplsLabelAction action, Bexo::MplsLabelStack labels,
                                   Mpls::PayloadType payload = Mpls::PayloadType::payloadMpls);
  // Writes the vias under fresh via keys, then the via set naming them.
  void viaSetIs(uint32_t id, std::vector<Mpls::LfibMplsVia> vias, uint32_t backupViaSet = 0);
  void viaSetDel(uint32_t id) { lfib->viaSetDel(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, id)); }
  // An external-FEC via naming FEC 0x0900000000000011, and a via set of it.
  Mpls::LfibViaKey externalFecViaIs();
  void externalFecViaSetIs(uint32_t id);
  void routeIs(uint32_t label, uint32_t viaSet, Mpls::LfibViaType type = Mpls::viaTypeMplsIp,
               uint8_t flags = 0);
  void routeDel(uint32_t label) { lfib->routeDel(key(label)); }
  void routeDel(std::initializer_list<uint32_t> labels) {
    for (uint32_t label : labels) routeDel(label);
  }
  void mplsRoutingIs(bool on) { routing->mplsRoutingIs(on); }
  // Start-up signals: the driver has written its route sync map, the system
  // LFIB is ready, the transit LFIB's writer has written everything.
  void routeSyncMapReadyIs(bool ready) { hwSingletonStatus->routeSyncMapReadyIs(ready); }
  void systemLfibReadyIs(bool ready) { localLfibInfo->systemLfibReadyIs(ready); }
  void transitLfibQuiescedIs(bool quiesced) { lfibInfo->transitLfibQuiescedIs(quiesced); }

  // Outputs.
  Qel::MplsBaseSm* sm() const { return root->mplsSm().get(); }
  Qel::MplsState* state() const { return sm()->mplsState(); }
  Vosh::Qel::MplsHwRouteConfig hwRoute(uint32_t label) const {
    return driver.config->mplsHwRoute(key(label));
  }
  Vosh::Qel::MplsHwL2AdjacencyConfig hwL2(uint64_t id) const {
    return driver.config->l2Adjacency(id);
  }
  size_t hwRoutes() const { return driver.config->mplsHwRoutes(); }
  size_t hwL2Adjacencies() const { return driver.config->l2Adjacencys(); }
  Mpls::Hardware::RouteInfo published(uint32_t label) const {
    return root->routingHwMplsStatus()->route(key(label));
  }
  bool isPublished(uint32_t label) const {
    return root->routingHwMplsStatus()->routeHas(key(label));
  }
  void expectProgrammed(std::initializer_list<uint32_t> labels) const {
    for (uint32_t label : labels) {
      EXPECT_EQ(published(label).state, Mpls::Hardware::RouteState::routeStateProgrammed) << label;
    }
  }
  Qel::MplsSmStartupStatus stage() const { return sm()->mplsSmStartupStatus(); }
  // The FEC id the agent filed for an MPLS-over-IP via set, and its description.
  Vosh::Fib::FecId fecIdOf(uint32_t viaSet) const;
  Vosh::Fib::Fec filedFec(uint32_t viaSet) const;
  // Every record of the agent's FEC request tables.
  size_t filedFecRecords() const;
  static Mpls::RouteKey key(uint32_t label) { return Mpls::RouteKey(Bexo::MplsLabel(label)); }
  // Checks that nothing a route needed is left behind once no route is left.
  void expectNoRouteResourcesLeft() const;
  // Deletes the last routes and checks that they took everything with them.
  void expectNothingLeftOnceRoutesGo(std::initializer_list<uint32_t> labels) {
    routeDel(labels);
    settle();
    expectNoRouteResourcesLeft();
  }

  // A state-database entity another agent writes, there before the agent mounts it.
  template <class T>
  Kiv::Ptr<T> korbaEntity(const std::string& path) {
    auto entity = Kiv::make<T>(path);
    korba->entityIs(path, T::kTypeName, entity);
    return entity;
  }

  std::string prefix;
  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Korba::EntityManager> korba;
  Kiv::Ptr<Mpls::RoutingInfo> routing;
  Kiv::Ptr<QelL3Intf::Table> l3Intfs;
  Kiv::Ptr<Qel::MplsHwSingletonStatus> hwSingletonStatus;
  Kiv::Ptr<Mpls::LfibInfo> lfibInfo;
  Kiv::Ptr<Vosh::EntityManager> platform;  // the producers' and driver's view
  Kiv::Ptr<Vosh::EntityManager> agentShm;  // the agent's view
  Kiv::Ptr<Mpls::LfibStatus> lfib;
  Kiv::Ptr<Arp::Table::Status> arp;
  Kiv::Ptr<Vosh::Bridging::Status> fdb;
  Kiv::Ptr<Qel::MplsProgrammingModeConfig> modeConfig;
  Kiv::Ptr<Mpls::LocalLfibInfo> localLfibInfo;
  Kiv::Ptr<Plin::AttrLogSm> attrLog;
  Kiv::Ptr<TestHelper> helper;
  // The agent's state-database hardware singletons: they outlive its cores.
  Kiv::Ptr<Qel::MplsHwConfig> hwConfig;
  Kiv::Ptr<Qel::MplsHwStatus> hwStatus;
  Kiv::Ptr<Qel::MplsRootSm> root;
  TestDriver driver;
  TestFecAllocator allocator;
  uint32_t nextViaIndex = 1;
  std::string toggleDir;
};

}  // namespace QelTest
