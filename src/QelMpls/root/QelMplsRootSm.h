#pragma once

// The agent's entry point into the library. The agent creates the root once
// (mplsRootSmFactory) with its state-database entity manager, scheduler,
// helper and two hardware singletons; the shared-memory tables are mounted
// through the agent's shared-memory entity manager, which the agent names
// (Vosh::EntityManager::agentEntityManagerIs) before the mounts complete.
// Nothing is mounted until the programming-mode configuration names an
// adjacency programmer; then the root mounts its state-database paths, and
// once that mount group completes, creates its local entities, mounts its
// shared-memory tables and builds the state machines of the mode. The mode is committed once: a change to another
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
             Kiv::Ptr<MplsHwConfig> mplsHwConfig, Kiv::Ptr<MplsHwStatus> mplsHwStatus);
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
  // Builds the state machines of the committed mode once every input they
  // read is set; until then it traces the first one missing and waits.
  void createSm();
  // The 24 inputs every core state machine takes, and the optional second LFIB.
  MplsBaseSm::Inputs coreInputs() const;
  void deleteSm();

  MplsSmAdjacencyProgrammer adjacencyType() const { return adjacencyType_; }
  bool adjacencyTypeCommitted() const { return adjacencyTypeCommitted_; }
  // The first input the committed mode needs that is not set, or null.
  const char* missingInput() const;

  // Every pointer attribute has a setter and a clearer. A platform may set
  // and clear inputs one at a time after construction: once the mounts are
  // complete, each change rebuilds the state machines over the inputs as they
  // now are (a cleared input leaves them torn down until it is set again),
  // and the new core recovers from the hardware tables as after a restart.
  const Kiv::Ptr<const MplsProgrammingModeConfig>& mplsProgrammingModeConfig() const {
    return mplsProgrammingModeConfig_;
  }
  void mplsProgrammingModeConfigIs(Kiv::Ptr<const MplsProgrammingModeConfig> config);
  void mplsProgrammingModeConfigDel() { mplsProgrammingModeConfigIs(nullptr); }
  const Kiv::Ptr<Korba::EntityManager>& entityManager() const { return entityManager_; }
  void entityManagerIs(Kiv::Ptr<Korba::EntityManager> em) { entityManager_ = std::move(em); }
  void entityManagerDel() { entityManager_ = nullptr; }
  Plin::TaskScheduler* taskScheduler() const { return taskScheduler_; }
  void taskSchedulerIs(Plin::TaskScheduler* scheduler);
  void taskSchedulerDel() { taskSchedulerIs(nullptr); }
  const Kiv::Ptr<MplsRootSmMounter>& mounter() const { return mounter_; }
  void mounterIs(MplsRootSm* root);
  void mounterDel();

#define QEL_ROOT_INPUT(Type, name)                                              \
  const Kiv::Ptr<Type>& name() const { return name##_; }                        \
  void name##Is(Kiv::Ptr<Type> value) { inputIs(name##_, std::move(value)); } \
  void name##Del() { inputIs(name##_, Kiv::Ptr<Type>()); }
  QEL_ROOT_INPUT(QelHelper::MplsSmHelper, mplsSmHelper)
  QEL_ROOT_INPUT(Plin::AttrLogSm, attrLogSm)
  QEL_ROOT_INPUT(const Mpls::LocalLfibInfo, localLfibInfo)
  QEL_ROOT_INPUT(MplsHwConfig, mplsHwConfig)
  QEL_ROOT_INPUT(MplsHwStatus, mplsHwStatus)
  QEL_ROOT_INPUT(MplsHwSingletonConfig, mplsHwSingletonConfig)
  QEL_ROOT_INPUT(MplsHwSingletonStatus, mplsHwSingletonStatus)
  QEL_ROOT_INPUT(Mpls::LfibInfo, lfibInfo)
  QEL_ROOT_INPUT(Mpls::RoutingInfo, mplsRoutingInfo)
  QEL_ROOT_INPUT(Mpls::Hardware::Status, routingHwMplsStatus)
  QEL_ROOT_INPUT(QelL3Intf::Table, l3IntfTable)
  QEL_ROOT_INPUT(Routing::Hardware::RouteStatus, routingHwRouteStatus)
  QEL_ROOT_INPUT(QelL3AdjSyncStatusExternal, l3AdjSyncStatusExt)
  QEL_ROOT_INPUT(Multicast::Group::Config, mcastConfig)
  QEL_ROOT_INPUT(Multicast::Group::Status, mcastStatus)
  QEL_ROOT_INPUT(Mpls::LfibStatus, transitLfib)
  QEL_ROOT_INPUT(Mpls::LfibHwStatus, lfibHwStatus)
  QEL_ROOT_INPUT(Arp::Table::Status, arpVosh)
  QEL_ROOT_INPUT(Arp::ProactiveArp::ClientConfig, proactiveArpNexthop)
  QEL_ROOT_INPUT(Vosh::Bridging::Status, bridgingStatus)
  QEL_ROOT_INPUT(Vosh::Qel::MplsHwCollectionConfig, mplsHwCollectionConfig)
  QEL_ROOT_INPUT(Vosh::Qel::MplsHwCollectionStatus, mplsHwCollectionStatus)
  QEL_ROOT_INPUT(FecIdToHwFecIdRequest, hwFecIdRequest)
  QEL_ROOT_INPUT(FecIdToHwFecIdResponse, hwFecIdResponse)
  QEL_ROOT_INPUT(FecIdToHwFecIdRequest, mplsMulticastFecRequest)
  QEL_ROOT_INPUT(FecIdToHwFecIdResponse, mplsMulticastFecResponse)
  QEL_ROOT_INPUT(MplsSmInputSummary, inputStatusSummary)
  QEL_ROOT_INPUT(McastGroupProgConfig, mcastGroupProgConfig)
  QEL_ROOT_INPUT(McastHwStatus, mcastHwStatus)
  QEL_ROOT_INPUT(ProactiveArpNexthopSm, proactiveArpNhSm)
  // Optional: a second LFIB whose via sets the core reads when the transit
  // LFIB lacks one. Nothing mounts it; a platform that has one sets it.
  QEL_ROOT_INPUT(const Mpls::LfibStatus, lfibStatus)
#undef QEL_ROOT_INPUT

  const Kiv::Ptr<MplsBaseSm>& mplsSm() const { return mplsSm_; }
  void mplsSmIs(Kiv::Ptr<MplsBaseSm> sm) { mplsSm_ = std::move(sm); }
  void mplsSmDel() { mplsSm_ = nullptr; }
  const Kiv::Ptr<MplsSmInputStatusSm>& mplsSmInputStatusSm() const { return mplsSmInputStatusSm_; }
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

  template <class T>
  void inputIs(Kiv::Ptr<T>& attribute, Kiv::Ptr<T> value) {
    attribute = std::move(value);
    inputChanged();
  }
  void inputChanged();
  bool programmerConfigured() const;

  Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig_;
  Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper_;
  Kiv::Ptr<Korba::EntityManager> entityManager_;
  Kiv::Ptr<Plin::AttrLogSm> attrLogSm_;
  Plin::TaskScheduler* taskScheduler_;
  Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo_;
  Kiv::Ptr<MplsHwConfig> mplsHwConfig_;
  Kiv::Ptr<MplsHwStatus> mplsHwStatus_;
  // The agent's shared-memory entity manager, taken when the mounts complete.
  Kiv::Ptr<Vosh::EntityManager> voshEntityManager_;
  MplsSmAdjacencyProgrammer adjacencyType_ = MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
  bool adjacencyTypeCommitted_ = false;
  bool mounting_ = false;
  bool mounted_ = false;
  Kiv::Ptr<MplsRootSmMounter> mounter_;

  Kiv::Ptr<MplsHwSingletonConfig> mplsHwSingletonConfig_;
  Kiv::Ptr<MplsHwSingletonStatus> mplsHwSingletonStatus_;
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
  Kiv::Ptr<const Mpls::LfibStatus> lfibStatus_;
  Pellet::Facility trace_;
  std::unique_ptr<KivMplsProgrammingModeConfig> kivMplsProgrammingModeConfig_;
};

Kiv::Ptr<MplsRootSm> mplsRootSmFactory(
    Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
    Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper, Kiv::Ptr<Korba::EntityManager> entityManager,
    Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsHwConfig> mplsHwConfig,
    Kiv::Ptr<MplsHwStatus> mplsHwStatus);

}  // namespace Qel
