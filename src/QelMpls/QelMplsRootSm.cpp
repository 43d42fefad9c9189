#include "QelMpls/QelMplsRootSm.h"

#include "Qel/FeatureToggle.h"
#include "kiv/Assert.h"
#include "korba/MountGroup.h"

namespace Qel {

namespace {
constexpr int kTraceRoot = 2;

// Another agent owns the hardware route status and FEC-id response tables
// when this toggle is on; this library then only reads them.
bool qelL3AgentMpls() { return featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"); }

struct KorbaMount {
  const char* path;
  const char* typeName;
  const char* mode;
};

constexpr KorbaMount kKorbaCommon[] = {
    {"hardware/qel/mplsHwSingletonConfig", MplsHwSingletonConfig::kTypeName, "wc"},
    {"hardware/qel/mplsHwSingletonStatus", MplsHwSingletonStatus::kTypeName, "rc"},
    {"routing/mpls/lfibInfo", Mpls::LfibInfo::kTypeName, "rS"},
    {"routing/mpls/routingInfo/status", Mpls::RoutingInfo::kTypeName, "r"},
    {"routing/hardware/mpls/status", Mpls::Hardware::Status::kTypeName, "wS"},
    {"qel/l3IntfTable", QelL3Intf::Table::kTypeName, "r"},
    {"routing/hardware/route/status", Routing::Hardware::RouteStatus::kTypeName, "r"},
};

constexpr KorbaMount kKorbaMediated[] = {
    {"qel/sync/adjSyncStatus", QelL3AdjSyncStatusExternal::kTypeName, "r"},
    {"hardware/qel/mcastGroup/config/QelMpls/ClientConfig", Multicast::Group::Config::kTypeName,
     "w"},
    {"hardware/qel/mcastGroup/status", Multicast::Group::Status::kTypeName, "r"},
};

// A path stays mounted when the state machines are rebuilt over it.
void ensureWriter(Vosh::EntityManager& em, const char* path,
                  const std::vector<Vosh::CollectionDecl>& collections) {
  if (!em.mounted(path)) em.mountWriter(path, collections);
}

void ensureReader(Vosh::EntityManager& em, const char* path, Vosh::MountType type) {
  if (!em.mounted(path)) em.mountReader(path, type);
}

template <class T>
void registerKorbaType(Korba::EntityManager& em) {
  em.registerType(T::kTypeName, [](const std::string& path) -> Kiv::Ptr<Kiv::Entity> {
    return Kiv::make<T>(path);
  });
}
}  // namespace

void registerMplsKorbaTypes(Korba::EntityManager& em) {
  registerKorbaType<MplsHwSingletonConfig>(em);
  registerKorbaType<MplsHwSingletonStatus>(em);
  registerKorbaType<Mpls::LfibInfo>(em);
  registerKorbaType<Mpls::RoutingInfo>(em);
  registerKorbaType<Mpls::Hardware::Status>(em);
  registerKorbaType<QelL3Intf::Table>(em);
  registerKorbaType<Routing::Hardware::RouteStatus>(em);
  registerKorbaType<QelL3AdjSyncStatusExternal>(em);
  registerKorbaType<Multicast::Group::Config>(em);
  registerKorbaType<Multicast::Group::Status>(em);
}

void MplsRootSmMounter::doMountsComplete(Korba::MountStatus mountStatus,
                                         Korba::EntityManager*) {
  KIV_ASSERT_TEXT(mountStatus == Korba::mountSuccess_, "mountStatus == Korba::mountSuccess_");
  if (root_) root_->mountsComplete();
}

class MplsRootSm::KivMplsProgrammingModeConfig : public Kiv::Reactor {
 public:
  KivMplsProgrammingModeConfig(MplsRootSm* root, const MplsProgrammingModeConfig* config) {
    on(config->onAdjacencyProgrammer, [root] { root->handleAdjacencyType(); });
  }
};

MplsRootSm::MplsRootSm(Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
                       Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper,
                       Kiv::Ptr<Korba::EntityManager> entityManager,
                       Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
                       Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
                       Kiv::Ptr<MplsHwConfig> mplsHwConfig, Kiv::Ptr<MplsHwStatus> mplsHwStatus,
                       Kiv::Ptr<Vosh::EntityManager> voshEntityManager)
    : Kiv::Entity("mplsRootSm"),
      mplsProgrammingModeConfig_(std::move(mplsProgrammingModeConfig)),
      mplsSmHelper_(std::move(mplsSmHelper)),
      entityManager_(std::move(entityManager)),
      attrLogSm_(std::move(attrLogSm)),
      taskScheduler_(taskScheduler),
      localLfibInfo_(std::move(localLfibInfo)),
      mplsHwConfig_(std::move(mplsHwConfig)),
      mplsHwStatus_(std::move(mplsHwStatus)),
      voshEntityManager_(std::move(voshEntityManager)),
      trace_(initializeQelMplsPelletHandle(), "QelMplsRootSm") {
  kivMplsProgrammingModeConfig_ =
      std::make_unique<KivMplsProgrammingModeConfig>(this, mplsProgrammingModeConfig_.get());
}

MplsRootSm::~MplsRootSm() {
  // The mount group may complete after the root is gone; it must not call back.
  kivMplsProgrammingModeConfig_.reset();
  if (mounter_) mounter_->rootDel();
  deleteSm();
}

void MplsRootSm::handleInitialized() {
  initializeQelMplsPelletHandle();
  handleAdjacencyType();
}

void MplsRootSm::handleAdjacencyType() {
  MplsSmAdjacencyProgrammer configured = mplsProgrammingModeConfig_->adjacencyProgrammer();
  PELLET_TRACE(trace_, kTraceRoot, "adjacency type is {}", configured);
  if (configured == MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone) {
    deleteSm();
    return;
  }
  if (!adjacencyTypeCommitted_) {
    adjacencyType_ = configured;
    adjacencyTypeCommitted_ = true;
  } else if (configured != adjacencyType_) {
    KIV_ASSERT_TEXT(false, "Invalid transition between mpls adjacency types");
  }
  if (!mplsSm_) {
    if (!mounting_) startMounting();
    return;
  }
  PELLET_TRACE(trace_, kTraceRoot, "MplsSm already created");
}

void MplsRootSm::startMounting() {
  PELLET_TRACE(trace_, kTraceRoot, "startMounting");
  mounting_ = true;
  mounter_ = Kiv::make<MplsRootSmMounter>(this);
  Kiv::Ptr<Korba::MountGroup> group = entityManager_->mountGroup(mounter_);
  mountKorbaCommon(*group);
  if (adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) {
    mountKorbaMediated(*group);
  }
  group->close();
}

void MplsRootSm::mountKorbaCommon(Korba::MountGroup& group) {
  for (const KorbaMount& m : kKorbaCommon) group.mount(m.path, m.typeName, m.mode);
}

void MplsRootSm::mountKorbaMediated(Korba::MountGroup& group) {
  for (const KorbaMount& m : kKorbaMediated) group.mount(m.path, m.typeName, m.mode);
}

void MplsRootSm::mountsComplete() {
  PELLET_TRACE(trace_, kTraceRoot, "mountsComplete");
  mounting_ = false;
  if (!adjacencyTypeCommitted_ || mplsSm_) return;
  createLocalEntities();
  getKorbaEntitiesCommon();
  mountVoshCommon();
  if (adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) {
    getKorbaEntitiesMediated();
    mountVoshMediated();
  }
  createSm();
}

void MplsRootSm::createLocalEntities() {
  inputStatusSummary_ = mplsSmInputSummaryFactory();
  mcastGroupProgConfig_ = Kiv::make<McastGroupProgConfig>("mcastGroupProgConfig");
  mcastHwStatus_ = Kiv::make<McastHwStatus>("qelMcastHwStatus");
}

template <class T>
Kiv::Ptr<T> MplsRootSm::korbaEntity(const std::string& path, bool cellPath) const {
  return entityManager_->entityAs<T>(cellPath ? entityManager_->cellPath(path) : path);
}

void MplsRootSm::getKorbaEntitiesCommon() {
  hwSingletonConfig_ = korbaEntity<MplsHwSingletonConfig>(kKorbaCommon[0].path, true);
  hwSingletonStatus_ = korbaEntity<MplsHwSingletonStatus>(kKorbaCommon[1].path, true);
  lfibInfo_ = korbaEntity<Mpls::LfibInfo>(kKorbaCommon[2].path, false);
  mplsRoutingInfo_ = korbaEntity<Mpls::RoutingInfo>(kKorbaCommon[3].path, false);
  routingHwMplsStatus_ = korbaEntity<Mpls::Hardware::Status>(kKorbaCommon[4].path, false);
  l3IntfTable_ = korbaEntity<QelL3Intf::Table>(kKorbaCommon[5].path, false);
  routingHwRouteStatus_ = korbaEntity<Routing::Hardware::RouteStatus>(kKorbaCommon[6].path, false);
}

void MplsRootSm::getKorbaEntitiesMediated() {
  l3AdjSyncStatusExt_ = korbaEntity<QelL3AdjSyncStatusExternal>(kKorbaMediated[0].path, true);
  mcastConfig_ = korbaEntity<Multicast::Group::Config>(kKorbaMediated[1].path, false);
  mcastStatus_ = korbaEntity<Multicast::Group::Status>(kKorbaMediated[2].path, false);
}

void MplsRootSm::mountVoshCommon() {
  Vosh::EntityManager& em = *voshEntityManager_;
  ensureReader(em, kTransitLfibPath, Vosh::mountTypeSharedReader);
  transitLfib_ = Kiv::make<Mpls::LfibStatus>(em, kTransitLfibPath);

  ensureWriter(em, kLfibHwStatusPath, Mpls::LfibHwStatus::collections());
  lfibHwStatus_ = Kiv::make<Mpls::LfibHwStatus>(em, kLfibHwStatusPath);

  ensureReader(em, kArpStatusPath, Vosh::mountTypeReader);
  arpVosh_ = Kiv::make<Arp::Table::Status>(em, kArpStatusPath);

  ensureWriter(em, kProactiveArpPath, Arp::ProactiveArp::ClientConfig::collections());
  proactiveArpNexthop_ = Kiv::make<Arp::ProactiveArp::ClientConfig>(em, kProactiveArpPath);
  proactiveArpNhSmIs(proactiveArpNexthop_);

  ensureReader(em, kBridgingStatusPath, Vosh::mountTypeSharedReader);
  bridgingStatus_ = Kiv::make<Vosh::Bridging::Status>(em, kBridgingStatusPath);

  ensureWriter(em, kHwRouteConfigPath, Vosh::Qel::MplsHwCollectionConfig::collections());
  mplsHwCollectionConfig_ = Kiv::make<Vosh::Qel::MplsHwCollectionConfig>(em, kHwRouteConfigPath);

  if (qelL3AgentMpls()) {
    ensureReader(em, kHwRouteStatusPath, Vosh::mountTypeSharedReader);
  } else {
    ensureWriter(em, kHwRouteStatusPath, Vosh::Qel::MplsHwCollectionStatus::collections());
  }
  mplsHwCollectionStatus_ = Kiv::make<Vosh::Qel::MplsHwCollectionStatus>(em, kHwRouteStatusPath);

  ensureWriter(em, kUnicastFecReqPath, FecIdToHwFecIdRequest::collections());
  hwFecIdRequest_ = Kiv::make<FecIdToHwFecIdRequest>(em, kUnicastFecReqPath);
}

void MplsRootSm::mountVoshMediated() {
  Vosh::EntityManager& em = *voshEntityManager_;
  auto mountResponse = [&em](const char* path) {
    if (qelL3AgentMpls()) {
      ensureReader(em, path, Vosh::mountTypeSharedReader);
    } else {
      ensureWriter(em, path, FecIdToHwFecIdResponse::collections());
    }
    return Kiv::make<FecIdToHwFecIdResponse>(em, path);
  };
  hwFecIdResponse_ = mountResponse(kUnicastFecRespPath);
  ensureWriter(em, kMulticastFecReqPath, FecIdToHwFecIdRequest::collections());
  mplsMulticastFecRequest_ = Kiv::make<FecIdToHwFecIdRequest>(em, kMulticastFecReqPath);
  mplsMulticastFecResponse_ = mountResponse(kMulticastFecRespPath);
}

void MplsRootSm::proactiveArpNhSmIs(Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig) {
  proactiveArpNhSm_ = ProactiveArpNexthopSmIs(std::move(clientConfig));
}

void MplsRootSm::mplsSmInputStatusSmIs(Kiv::Ptr<const MplsHwSingletonStatus> mplsHwSingletonStatus,
                                       Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
                                       Kiv::Ptr<MplsSmInputSummary> inputStatusSummary,
                                       Kiv::Ptr<const Mpls::RoutingInfo> mplsRoutingInfo) {
  mplsSmInputStatusSm_ =
      mplsSmInputStatusSmFactory(std::move(mplsHwSingletonStatus), std::move(localLfibInfo),
                                 std::move(inputStatusSummary), std::move(mplsRoutingInfo));
}

void MplsRootSm::createSm() {
  KIV_ASSERT_TEXT(adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated ||
                      adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect,
                  "adjType == mplsSmAdjacencyMediated() || adjType == mplsSmAdjacencyDirect()");
  PELLET_TRACE(trace_, kTraceRoot, "Create Sms for adj type {}", adjacencyType_);
  mplsSmInputStatusSmIs(hwSingletonStatus_, localLfibInfo_, inputStatusSummary_, mplsRoutingInfo_);
  // The mediated mode's state machines arrive with that mode; until then a
  // mediated configuration mounts its tables and stops short of programming.
  if (adjacencyType_ != MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect) {
    PELLET_TRACE(trace_, 0, "mediated adjacency mode is not available in this build");
    return;
  }
  MplsBaseSm::Inputs inputs;
  inputs.mplsHwSingletonConfig = hwSingletonConfig_;
  inputs.mplsHwSingletonStatus = hwSingletonStatus_;
  inputs.mplsHwCollectionConfig = mplsHwCollectionConfig_;
  inputs.mplsHwCollectionStatus = mplsHwCollectionStatus_;
  inputs.lfibInfo = lfibInfo_;
  inputs.localLfibInfo = localLfibInfo_;
  inputs.mplsRoutingInfo = mplsRoutingInfo_;
  inputs.transitLfib = transitLfib_;
  inputs.lfibHwStatus = lfibHwStatus_;
  inputs.routingHwRouteStatus = routingHwRouteStatus_;
  inputs.routingHwMplsStatus = routingHwMplsStatus_;
  inputs.mplsHwConfig = mplsHwConfig_;
  inputs.mplsHwStatus = mplsHwStatus_;
  inputs.arpVosh = arpVosh_;
  inputs.proactiveArpNhSm = proactiveArpNhSm_;
  inputs.bridgingStatus = bridgingStatus_;
  inputs.l3IntfTable = l3IntfTable_;
  inputs.inputStatusSummary = inputStatusSummary_;
  inputs.l3AdjSyncStatusExt = l3AdjSyncStatusExt_;
  inputs.hwFecIdRequest = hwFecIdRequest_;
  inputs.mplsSmHelper = mplsSmHelper_;
  inputs.attrLogSm = attrLogSm_;
  inputs.clock = taskScheduler_->clock();
  inputs.taskScheduler = taskScheduler_;
  mplsSmIs(mplsRouteAndDirectAdjSmFactory(inputs));
}

void MplsRootSm::deleteSm() {
  PELLET_TRACE(trace_, kTraceRoot, "deleteSm");
  mplsSmIs(nullptr);
  mplsSmInputStatusSmDel();
}

Kiv::Ptr<MplsRootSm> mplsRootSmFactory(
    Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
    Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper, Kiv::Ptr<Korba::EntityManager> entityManager,
    Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsHwConfig> mplsHwConfig,
    Kiv::Ptr<MplsHwStatus> mplsHwStatus, Kiv::Ptr<Vosh::EntityManager> voshEntityManager) {
  auto root = Kiv::make<MplsRootSm>(
      std::move(mplsProgrammingModeConfig), std::move(mplsSmHelper), std::move(entityManager),
      std::move(attrLogSm), taskScheduler, std::move(localLfibInfo), std::move(mplsHwConfig),
      std::move(mplsHwStatus), std::move(voshEntityManager));
  root->handleInitialized();
  return root;
}

}  // namespace Qel
