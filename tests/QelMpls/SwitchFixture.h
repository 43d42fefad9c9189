#pragma once

// A switch built in stages for the library's tests: the platform side
// (LFIB, ARP, MAC table and interface producers, and a driver that answers
// the hardware tables) around a root state machine in the direct mode, all on
// one virtual-time scheduler.

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "QelMpls/QelMplsRootSm.h"
#include "Qel/FeatureToggle.h"
#include "korba/EntityManager.h"
#include "vosh/EntityManager.h"

namespace QelTest {

// Answers the hardware tables the way a driver does: every route record and
// layer-2 record gets a status carrying the version it answered.
class TestDriver {
 public:
  TestDriver(Vosh::EntityManager& platform, Vosh::EntityManager& reader);
  void attach();
  // Routes beyond this many are refused as route-full (with the resource flag).
  size_t routeCapacity = 1000000;
  bool answer = true;
  std::set<uint32_t> failLabels;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> config;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus> status;
  void answerRoute(const Mpls::RouteKey& key);
  void answerL2Adjacency(uint64_t id);
  size_t programmedRoutes() const { return programmed_.size(); }

 private:
  Vosh::EntityManager& platform_;
  Vosh::EntityManager& reader_;
  std::set<Mpls::RouteKey> programmed_;
  Kiv::Connection routeConnection_;
  Kiv::Connection l2Connection_;
};

class SwitchFixture : public ::testing::Test {
 protected:
  SwitchFixture();
  ~SwitchFixture() override;

  // Creates the root and lets it mount and build its state machines.
  void startAgent();
  void stopAgent();
  // Lets every reaction, review pass and driver answer due in the next half second run.
  void settle() { scheduler.advance(0.5); }
  void advance(double seconds) { scheduler.advance(seconds); }

  // Inputs.
  void interfaceIs(const std::string& name, uint16_t vlan, bool routedPort = true,
                   bool hwSupported = true);
  void arpIs(const std::string& ip, const std::string& intf, const std::string& mac);
  void arpDel(const std::string& ip, const std::string& intf);
  void fdbIs(uint16_t vlan, const std::string& mac, const std::string& port);
  // A via set of MPLS-over-IP vias: "nexthop intf label" each.
  void mplsViaSetIs(uint32_t id, const std::vector<std::tuple<std::string, std::string, uint32_t>>& vias);
  void viaSetDel(uint32_t id, Mpls::LfibViaType type = Mpls::viaTypeMplsIp);
  void externalFecViaSetIs(uint32_t id);
  void routeIs(uint32_t label, uint32_t viaSet, Mpls::LfibViaType type = Mpls::viaTypeMplsIp);
  void routeDel(uint32_t label);
  void mplsRoutingIs(bool on);

  // Outputs.
  Qel::MplsBaseSm* sm() const { return root->mplsSm().get(); }
  Qel::MplsState* state() const { return sm()->mplsState(); }
  Vosh::Qel::MplsHwRouteConfig hwRoute(uint32_t label) const;
  Vosh::Qel::MplsHwL2AdjacencyConfig hwL2(uint64_t id) const;
  size_t hwRoutes() const { return driver.config->mplsHwRoutes(); }
  size_t hwL2Adjacencies() const { return driver.config->l2Adjacencys(); }
  Mpls::Hardware::RouteInfo published(uint32_t label) const;
  bool isPublished(uint32_t label) const;

  std::string prefix;
  Plin::TaskScheduler scheduler;
  Kiv::Ptr<Korba::EntityManager> korba;
  Kiv::Ptr<Vosh::EntityManager> platform;   // the producers' and driver's view
  Kiv::Ptr<Vosh::EntityManager> agentShm;   // the agent's view
  Kiv::Ptr<Mpls::LfibStatus> lfib;
  Kiv::Ptr<Arp::Table::Status> arp;
  Kiv::Ptr<Vosh::Bridging::Status> fdb;
  Kiv::Ptr<Qel::MplsProgrammingModeConfig> modeConfig;
  Kiv::Ptr<Mpls::LocalLfibInfo> localLfibInfo;
  Kiv::Ptr<Plin::AttrLogSm> attrLog;
  Kiv::Ptr<QelHelper::MplsSmHelper> helper;
  Kiv::Ptr<Qel::MplsRootSm> root;
  TestDriver driver;
  uint32_t nextViaIndex = 1;
};

}  // namespace QelTest
