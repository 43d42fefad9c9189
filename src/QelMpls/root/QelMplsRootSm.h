#pragma once

// The agent's entry point into the library. The agent creates the root once
// (mplsRootSmFactory) with its entity managers, scheduler, helper and two
// hardware singletons. Nothing is mounted until the programming-mode
// configuration names an adjacency programmer; then the root mounts its
// state-database paths, and once that mount group completes, creates its
// local entities, mounts its shared-memory tables and builds the state
// machines of the mode. The mode is committed once: a change to another
// programmer is refused, a return to none tears the state machines down
// (core first, input status last) and keeps every mounted entity, which is
// what the next start recovers from.
//
// Toggles read once per process (see Qel/FeatureToggle.h): "QelL3AgentMpls"
// in "StageMgr.json" (on: the hardware route status and the FEC-id response
// tables belong to another agent and are mounted read-only) and
// "QelMplsAgentKivModels" in "QelMpls.json" (on: routes are programmed through
// the shared-memory tables rather than the state-database entities).

#include <memory>
#include <string>

#include "QelMpls/root/QelMplsInputStatusSm.h"
#include "QelMpls/platform/QelMplsRouteAndDirectAdjSm.h"
#include "QelMpls/platform/QelMplsRouteAndMediatedAdjSm.h"
#include "QelMpls/core/QelMplsSm.h"
#include "QelMpls/platform/QelMplsVoshTables.h"
#include "QelMpls/platform/QelMplsVoshTypes.h"
#include "Qel/QelBaseHelper.h"
#include "korba/EntityManager.h"
#include "korba/MountCallback.h"
#include "models/FecRequest.h"
#include "models/MplsHardwareStatus.h"
#include "models/MplsInfo.h"
#include "models/Multicast.h"
#include "models/ProactiveArpNexthopSm.h"
#include "models/QelL3IntfTable.h"
#include "models/RoutingHwRouteStatus.h"
#include "models/VoshTables.h"
#include "plin/AttrLogSm.h"
#include "plin/TaskScheduler.h"
#include "vosh/EntityManager.h"

namespace Qel {

// The programming-mode configuration: which adjacency programmer to use.
class MplsProgrammingModeConfig : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  KIV_ATTR(MplsSmAdjacencyProgrammer, adjacencyProgrammer, AdjacencyProgrammer,
           MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone)
};

// Registers the state-database types the root mounts, so that a mount of a
// path with another type name fails.
void registerMplsKorbaTypes(Korba::EntityManager& entityManager);

class MplsRootSm;

class MplsRootSmMounter : public Korba::MountCallback {
 public:
  explicit MplsRootSmMounter(MplsRootSm* root) : root_(root) {}
  void doMountsComplete(Korba::MountStatus mountStatus,
                        Korba::EntityManager* entityManager) override;
  // A root that goes before its mounts complete is not called back.
  void rootDel() { root_ = nullptr; }

 private:
  MplsRootSm* root_;
};

class MplsRootSm : public Kiv::Entity {
 public:
  MplsRootSm(Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
             Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper,
             Kiv::Ptr<Korba::EntityManager> entityManager, Kiv::Ptr<Plin::AttrLogSm> attrLogSm,
             Plin::TaskScheduler* taskScheduler, Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
             Kiv::Ptr<MplsHwConfig> mplsHwConfig, Kiv::Ptr<MplsHwStatus> mplsHwStatus,
             Kiv::Ptr<Vosh::EntityManager> voshEntityManager);
  ~MplsRootSm() override;

  void handleInitialized();
  void handleAdjacencyType();
  void startMounting();
  void mountKorbaCommon(Korba::MountGroup& mountGroup);
  void mountKorbaMediated(Korba::MountGroup& mountGroup);
  void mountsComplete();
  void createLocalEntities();
  void getKorbaEntitiesCommon();
  void getKorbaEntitiesMediated();
  void mountVoshCommon();
  void mountVoshMediated();
  void createSm();
  // The 24 inputs every core state machine takes.
  MplsBaseSm::Inputs coreInputs() const;
  void deleteSm();

  MplsSmAdjacencyProgrammer adjacencyType() const { return adjacencyType_; }
  bool adjacencyTypeCommitted() const { return adjacencyTypeCommitted_; }

  // Mounted and local entities.
  const Kiv::Ptr<MplsHwSingletonConfig>& mplsHwSingletonConfig() const { return hwSingletonConfig_; }
  const Kiv::Ptr<MplsHwSingletonStatus>& mplsHwSingletonStatus() const { return hwSingletonStatus_; }
  const Kiv::Ptr<Mpls::LfibInfo>& lfibInfo() const { return lfibInfo_; }
  const Kiv::Ptr<Mpls::RoutingInfo>& mplsRoutingInfo() const { return mplsRoutingInfo_; }
  const Kiv::Ptr<Mpls::Hardware::Status>& routingHwMplsStatus() const { return routingHwMplsStatus_; }
  const Kiv::Ptr<QelL3Intf::Table>& l3IntfTable() const { return l3IntfTable_; }
  const Kiv::Ptr<Routing::Hardware::RouteStatus>& routingHwRouteStatus() const {
    return routingHwRouteStatus_;
  }
  const Kiv::Ptr<QelL3AdjSyncStatusExternal>& l3AdjSyncStatusExt() const { return l3AdjSyncStatusExt_; }
  const Kiv::Ptr<Mpls::LfibStatus>& transitLfib() const { return transitLfib_; }
  const Kiv::Ptr<Mpls::LfibHwStatus>& lfibHwStatus() const { return lfibHwStatus_; }
  const Kiv::Ptr<Arp::Table::Status>& arpVosh() const { return arpVosh_; }
  const Kiv::Ptr<Arp::ProactiveArp::ClientConfig>& proactiveArpNexthop() const {
    return proactiveArpNexthop_;
  }
  const Kiv::Ptr<Vosh::Bridging::Status>& bridgingStatus() const { return bridgingStatus_; }
  const Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig>& mplsHwCollectionConfig() const {
    return mplsHwCollectionConfig_;
  }
  const Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus>& mplsHwCollectionStatus() const {
    return mplsHwCollectionStatus_;
  }
  const Kiv::Ptr<FecIdToHwFecIdRequest>& hwFecIdRequest() const { return hwFecIdRequest_; }
  const Kiv::Ptr<MplsSmInputSummary>& inputStatusSummary() const { return inputStatusSummary_; }
  const Kiv::Ptr<McastHwStatus>& mcastHwStatus() const { return mcastHwStatus_; }
  const Kiv::Ptr<ProactiveArpNexthopSm>& proactiveArpNhSm() const { return proactiveArpNhSm_; }
  const Kiv::Ptr<MplsBaseSm>& mplsSm() const { return mplsSm_; }
  const Kiv::Ptr<MplsSmInputStatusSm>& mplsSmInputStatusSm() const { return mplsSmInputStatusSm_; }

  void mplsSmIs(Kiv::Ptr<MplsBaseSm> sm) { mplsSm_ = std::move(sm); }
  void mplsSmInputStatusSmIs(Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
                             Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
                             Kiv::Ptr<MplsSmInputSummary> inputStatusSummary,
                             Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo);
  void mplsSmInputStatusSmDel() { mplsSmInputStatusSm_ = nullptr; }
  void proactiveArpNhSmIs(Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig);

  // The shared-memory paths of the root's tables.
  static constexpr const char* kTransitLfibPath = "mpls/transitLfib";
  static constexpr const char* kLfibHwStatusPath = "hardware/mpls/lfib";
  static constexpr const char* kArpStatusPath = "arp/status";
  static constexpr const char* kProactiveArpPath = "arp/proactive/config/qelMpls";
  static constexpr const char* kBridgingStatusPath = "bridging/status";
  static constexpr const char* kHwRouteConfigPath = "hardware/qel/mplsHwRouteConfig";
  static constexpr const char* kHwRouteStatusPath = "hardware/qel/mplsHwRouteStatus";
  static constexpr const char* kUnicastFecReqPath = "qel/mpls/unicastFecIdHwFecIdReq";
  static constexpr const char* kUnicastFecRespPath = "qel/mpls/unicastFecIdHwFecIdResp";
  static constexpr const char* kMulticastFecReqPath = "qel/mpls/multicastFecIdHwFecIdReq";
  static constexpr const char* kMulticastFecRespPath = "qel/mpls/multicastFecIdHwFecIdResp";

 private:
  class KivMplsProgrammingModeConfig;

  Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig_;
  Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper_;
  Kiv::Ptr<Korba::EntityManager> entityManager_;
  Kiv::Ptr<Plin::AttrLogSm> attrLogSm_;
  Plin::TaskScheduler* taskScheduler_;
  Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo_;
  Kiv::Ptr<MplsHwConfig> mplsHwConfig_;
  Kiv::Ptr<MplsHwStatus> mplsHwStatus_;
  Kiv::Ptr<Vosh::EntityManager> voshEntityManager_;
  MplsSmAdjacencyProgrammer adjacencyType_ = MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
  bool adjacencyTypeCommitted_ = false;
  bool mounting_ = false;
  Kiv::Ptr<MplsRootSmMounter> mounter_;

  Kiv::Ptr<MplsHwSingletonConfig> hwSingletonConfig_;
  Kiv::Ptr<MplsHwSingletonStatus> hwSingletonStatus_;
  Kiv::Ptr<Mpls::LfibInfo> lfibInfo_;
  Kiv::Ptr<Mpls::RoutingInfo> mplsRoutingInfo_;
  Kiv::Ptr<Mpls::Hardware::Status> routingHwMplsStatus_;
  Kiv::Ptr<QelL3Intf::Table> l3IntfTable_;
  Kiv::Ptr<Routing::Hardware::RouteStatus> routingHwRouteStatus_;
  Kiv::Ptr<QelL3AdjSyncStatusExternal> l3AdjSyncStatusExt_;
  Kiv::Ptr<Multicast::Group::Config> mcastConfig_;
  Kiv::Ptr<Multicast::Group::Status> mcastStatus_;
  Kiv::Ptr<Mpls::LfibStatus> transitLfib_;
  Kiv::Ptr<Mpls::LfibHwStatus> lfibHwStatus_;
  Kiv::Ptr<Arp::Table::Status> arpVosh_;
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> proactiveArpNexthop_;
  Kiv::Ptr<Vosh::Bridging::Status> bridgingStatus_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> mplsHwCollectionConfig_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus> mplsHwCollectionStatus_;
  Kiv::Ptr<FecIdToHwFecIdRequest> hwFecIdRequest_;
  Kiv::Ptr<FecIdToHwFecIdResponse> hwFecIdResponse_;
  Kiv::Ptr<FecIdToHwFecIdRequest> mplsMulticastFecRequest_;
  Kiv::Ptr<FecIdToHwFecIdResponse> mplsMulticastFecResponse_;
  Kiv::Ptr<MplsSmInputSummary> inputStatusSummary_;
  Kiv::Ptr<McastGroupProgConfig> mcastGroupProgConfig_;
  Kiv::Ptr<McastHwStatus> mcastHwStatus_;
  Kiv::Ptr<ProactiveArpNexthopSm> proactiveArpNhSm_;
  Kiv::Ptr<MplsSmInputStatusSm> mplsSmInputStatusSm_;
  Kiv::Ptr<MplsBaseSm> mplsSm_;
  Pellet::Facility trace_;
  std::unique_ptr<KivMplsProgrammingModeConfig> kivMplsProgrammingModeConfig_;
};

Kiv::Ptr<MplsRootSm> mplsRootSmFactory(
    Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
    Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper, Kiv::Ptr<Korba::EntityManager> entityManager,
    Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsHwConfig> mplsHwConfig,
    Kiv::Ptr<MplsHwStatus> mplsHwStatus, Kiv::Ptr<Vosh::EntityManager> voshEntityManager);

}  // namespace Qel
