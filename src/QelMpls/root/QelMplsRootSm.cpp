#include "QelMpls/root/QelMplsRootSm.h"

#include "Qel/FeatureToggle.h"
#include "kiv/Assert.h"
#include "korba/MountGroup.h"

namespace Qel {

namespace {
constexpr int kTraceRoot = 2;

// Another agent owns the hardware route status and FEC-id response tables
// when this toggle is on; this library then only reads them.
bool qelL3AgentMpls() { return featureToggleEnabled("StageMgr.json", "QelL3AgentMpls"); }

// `cellPath`: the path lives under the switch's own cell. A "c" mode has the
// state database resolve it; the adjacency sync status is a cell path mounted
// with plain "r", so the root resolves that one itself.
struct KorbaMount {
  const char* path;
  const char* typeName;
  const char* mode;
  bool cellPath;
};

constexpr KorbaMount kKorbaCommon[] = {
    {"hardware/qel/mplsHwSingletonConfig", MplsHwSingletonConfig::kTypeName, "wc", true},
    {"hardware/qel/mplsHwSingletonStatus", MplsHwSingletonStatus::kTypeName, "rc", true},
    {"routing/mpls/lfibInfo", Mpls::LfibInfo::kTypeName, "rS", false},
    {"routing/mpls/routingInfo/status", Mpls::RoutingInfo::kTypeName, "r", false},
    {"routing/hardware/mpls/status", Mpls::Hardware::Status::kTypeName, "wS", false},
    {"qel/l3IntfTable", QelL3Intf::Table::kTypeName, "r", false},
    {"routing/hardware/route/status", Routing::Hardware::RouteStatus::kTypeName, "r", false},
};

constexpr KorbaMount kKorbaMediated[] = {
    {"qel/sync/adjSyncStatus", QelL3AdjSyncStatusExternal::kTypeName, "r", true},
    {"hardware/qel/mcastGroup/config/QelMpls/ClientConfig", Multicast::Group::Config::kTypeName,
     "w", false},
    {"hardware/qel/mcastGroup/status", Multicast::Group::Status::kTypeName, "r", false},
};

void mountKorba(const Korba::EntityManager& em, Korba::MountGroup& group, const KorbaMount& m) {
  bool resolvedByMode = std::string_view(m.mode).find('c') != std::string_view::npos;
  group.mount(m.cellPath && !resolvedByMode ? em.cellPath(m.path) : m.path, m.typeName, m.mode);
}

template <class T>
Kiv::Ptr<T> mountedEntity(const Korba::EntityManager& em, const KorbaMount& m) {
  return em.entityAs<T>(m.cellPath ? em.cellPath(m.path) : m.path);
}

// A path stays mounted when the state machines are rebuilt over it.
void ensureWriter(Vosh::EntityManager& em, const char* path,
                  const std::vector<Vosh::CollectionDecl>& collections) {
  if (!em.mounted(path)) em.mountWriter(path, collections);
}

void ensureReader(Vosh::EntityManager& em, const char* path, Vosh::MountType type) {
  if (!em.mounted(path)) em.mountReader(path, type);
}

// An entity of another type at a path is taken as absent: its setter gets an
// empty pointer and the state machines wait for a platform to set the input.
template <class T>
Kiv::Ptr<T> voshEntity(Vosh::EntityManager& em, const char* path, Pellet::Facility& trace) {
  try {
    return Kiv::make<T>(em, path);
  } catch (const Vosh::MountError& e) {
    PELLET_TRACE(trace, kTraceRoot, "{} holds another type: {}", path, e.what());
    return {};
  }
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
    if (config) on(config->onAdjacencyProgrammer, [root] { root->handleAdjacencyType(); });
  }
};

MplsRootSm::MplsRootSm(Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
                       Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper,
                       Kiv::Ptr<Korba::EntityManager> entityManager,
                       Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
                       Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo,
                       Kiv::Ptr<MplsHwConfig> mplsHwConfig, Kiv::Ptr<MplsHwStatus> mplsHwStatus)
    : Kiv::Entity("mplsRootSm"),
      mplsProgrammingModeConfig_(std::move(mplsProgrammingModeConfig)),
      mplsSmHelper_(std::move(mplsSmHelper)),
      entityManager_(std::move(entityManager)),
      attrLogSm_(std::move(attrLogSm)),
      taskScheduler_(taskScheduler),
      localLfibInfo_(std::move(localLfibInfo)),
      mplsHwConfig_(std::move(mplsHwConfig)),
      mplsHwStatus_(std::move(mplsHwStatus)),
      trace_(initializeQelMplsPelletHandle(), "QelMplsRootSm") {
  kivMplsProgrammingModeConfig_ =
      std::make_unique<KivMplsProgrammingModeConfig>(this, mplsProgrammingModeConfig_.get());
}

MplsRootSm::~MplsRootSm() {
  // The mount group may complete after the root is gone; it must not call back.
  kivMplsProgrammingModeConfig_.reset();
  mounterDel();
  deleteSm();
}

void MplsRootSm::handleInitialized() {
  initializeQelMplsPelletHandle();
  handleAdjacencyType();
}

void MplsRootSm::mplsProgrammingModeConfigIs(
    Kiv::Ptr<const MplsProgrammingModeConfig> config) {
  kivMplsProgrammingModeConfig_.reset();
  mplsProgrammingModeConfig_ = std::move(config);
  kivMplsProgrammingModeConfig_ =
      std::make_unique<KivMplsProgrammingModeConfig>(this, mplsProgrammingModeConfig_.get());
  handleAdjacencyType();
}

void MplsRootSm::taskSchedulerIs(Plin::TaskScheduler* scheduler) {
  taskScheduler_ = scheduler;
  inputChanged();
}

void MplsRootSm::mounterIs(MplsRootSm* root) {
  mounterDel();
  mounter_ = Kiv::make<MplsRootSmMounter>(root);
}

void MplsRootSm::mounterDel() {
  if (mounter_) mounter_->rootDel();
  mounter_ = nullptr;
}

bool MplsRootSm::programmerConfigured() const {
  return mplsProgrammingModeConfig_ && mplsProgrammingModeConfig_->adjacencyProgrammer() !=
                                           MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
}

void MplsRootSm::inputChanged() {
  // Before the mounts complete the mounting sequence itself sets the inputs
  // and builds the state machines once, after the last one.
  if (!mounted_ || !programmerConfigured()) return;
  deleteSm();
  createSm();
}

void MplsRootSm::handleAdjacencyType() {
  MplsSmAdjacencyProgrammer configured =
      mplsProgrammingModeConfig_ ? mplsProgrammingModeConfig_->adjacencyProgrammer()
                                 : MplsSmAdjacencyProgrammer::mplsSmAdjacencyNone;
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
  mounted_ = false;
  mounterIs(this);
  Kiv::Ptr<Korba::MountGroup> group = entityManager_->mountGroup(mounter_);
  mountKorbaCommon(*group);
  if (adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) {
    mountKorbaMediated(*group);
  }
  group->close();
}

void MplsRootSm::mountKorbaCommon(Korba::MountGroup& group) {
  for (const KorbaMount& m : kKorbaCommon) mountKorba(*entityManager_, group, m);
}

void MplsRootSm::mountKorbaMediated(Korba::MountGroup& group) {
  for (const KorbaMount& m : kKorbaMediated) mountKorba(*entityManager_, group, m);
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
  mounted_ = true;
  if (programmerConfigured()) createSm();
}

void MplsRootSm::createLocalEntities() {
  inputStatusSummaryIs(mplsSmInputSummaryFactory());
  mcastGroupProgConfigIs(Kiv::make<McastGroupProgConfig>("mcastGroupProgConfig"));
  mcastHwStatusIs(Kiv::make<McastHwStatus>("qelMcastHwStatus"));
}

void MplsRootSm::getKorbaEntitiesCommon() {
  const Korba::EntityManager& em = *entityManager_;
  mplsHwSingletonConfigIs(mountedEntity<MplsHwSingletonConfig>(em, kKorbaCommon[0]));
  mplsHwSingletonStatusIs(mountedEntity<MplsHwSingletonStatus>(em, kKorbaCommon[1]));
  lfibInfoIs(mountedEntity<Mpls::LfibInfo>(em, kKorbaCommon[2]));
  mplsRoutingInfoIs(mountedEntity<Mpls::RoutingInfo>(em, kKorbaCommon[3]));
  routingHwMplsStatusIs(mountedEntity<Mpls::Hardware::Status>(em, kKorbaCommon[4]));
  l3IntfTableIs(mountedEntity<QelL3Intf::Table>(em, kKorbaCommon[5]));
  routingHwRouteStatusIs(mountedEntity<Routing::Hardware::RouteStatus>(em, kKorbaCommon[6]));
}

void MplsRootSm::getKorbaEntitiesMediated() {
  const Korba::EntityManager& em = *entityManager_;
  l3AdjSyncStatusExtIs(mountedEntity<QelL3AdjSyncStatusExternal>(em, kKorbaMediated[0]));
  mcastConfigIs(mountedEntity<Multicast::Group::Config>(em, kKorbaMediated[1]));
  mcastStatusIs(mountedEntity<Multicast::Group::Status>(em, kKorbaMediated[2]));
}

void MplsRootSm::mountVoshCommon() {
  Vosh::EntityManager* agentEm = Vosh::EntityManager::agentEntityManager();
  KIV_ASSERT_TEXT(agentEm, "Vosh::EntityManager::agentEntityManager()");
  voshEntityManager_ = agentEm;
  Vosh::EntityManager& em = *voshEntityManager_;
  ensureReader(em, kTransitLfibPath, Vosh::mountTypeSharedReader);
  transitLfibIs(voshEntity<Mpls::LfibStatus>(em, kTransitLfibPath, trace_));

  ensureWriter(em, kLfibHwStatusPath, Mpls::LfibHwStatus::collections());
  lfibHwStatusIs(voshEntity<Mpls::LfibHwStatus>(em, kLfibHwStatusPath, trace_));

  ensureReader(em, kArpStatusPath, Vosh::mountTypeReader);
  arpVoshIs(voshEntity<Arp::Table::Status>(em, kArpStatusPath, trace_));

  ensureWriter(em, kProactiveArpPath, Arp::ProactiveArp::ClientConfig::collections());
  proactiveArpNexthopIs(voshEntity<Arp::ProactiveArp::ClientConfig>(em, kProactiveArpPath, trace_));
  proactiveArpNhSmIs(proactiveArpNexthop_);

  ensureReader(em, kBridgingStatusPath, Vosh::mountTypeSharedReader);
  bridgingStatusIs(voshEntity<Vosh::Bridging::Status>(em, kBridgingStatusPath, trace_));

  ensureWriter(em, kHwRouteConfigPath, Vosh::Qel::MplsHwCollectionConfig::collections());
  mplsHwCollectionConfigIs(
      voshEntity<Vosh::Qel::MplsHwCollectionConfig>(em, kHwRouteConfigPath, trace_));

  if (qelL3AgentMpls()) {
    ensureReader(em, kHwRouteStatusPath, Vosh::mountTypeSharedReader);
  } else {
    ensureWriter(em, kHwRouteStatusPath, Vosh::Qel::MplsHwCollectionStatus::collections());
  }
  mplsHwCollectionStatusIs(
      voshEntity<Vosh::Qel::MplsHwCollectionStatus>(em, kHwRouteStatusPath, trace_));

  ensureWriter(em, kUnicastFecReqPath, FecIdToHwFecIdRequest::collections());
  hwFecIdRequestIs(voshEntity<FecIdToHwFecIdRequest>(em, kUnicastFecReqPath, trace_));
}

void MplsRootSm::mountVoshMediated() {
  Vosh::EntityManager& em = *voshEntityManager_;
  auto mountResponse = [this, &em](const char* path) {
    if (qelL3AgentMpls()) {
      ensureReader(em, path, Vosh::mountTypeSharedReader);
    } else {
      ensureWriter(em, path, FecIdToHwFecIdResponse::collections());
    }
    return voshEntity<FecIdToHwFecIdResponse>(em, path, trace_);
  };
  hwFecIdResponseIs(mountResponse(kUnicastFecRespPath));
  ensureWriter(em, kMulticastFecReqPath, FecIdToHwFecIdRequest::collections());
  mplsMulticastFecRequestIs(voshEntity<FecIdToHwFecIdRequest>(em, kMulticastFecReqPath, trace_));
  mplsMulticastFecResponseIs(mountResponse(kMulticastFecRespPath));
}

void MplsRootSm::proactiveArpNhSmIs(Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig) {
  proactiveArpNhSmIs(clientConfig ? ProactiveArpNexthopSmIs(std::move(clientConfig))
                                  : Kiv::Ptr<ProactiveArpNexthopSm>());
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
  if (const char* missing = missingInput()) {
    PELLET_TRACE(trace_, kTraceRoot, "Sms wait for input {}", missing);
    return;
  }
  PELLET_TRACE(trace_, kTraceRoot, "Create Sms for adj type {}", adjacencyType_);
  mplsSmInputStatusSmIs(mplsHwSingletonStatus_, localLfibInfo_, inputStatusSummary_,
                        mplsRoutingInfo_);
  MplsBaseSm::Inputs inputs = coreInputs();
  if (adjacencyType_ == MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) {
    MplsRouteAndMediatedAdjSm::MediatedInputs mediated;
    mediated.hwFecIdResponse = hwFecIdResponse_;
    mediated.mcastGroupProgConfig = mcastGroupProgConfig_;
    mediated.mcastHwStatus = mcastHwStatus_;
    mediated.mplsMulticastFecRequest = mplsMulticastFecRequest_;
    mediated.mplsMulticastFecResponse = mplsMulticastFecResponse_;
    mplsSmIs(mplsRouteAndMediatedAdjSmFactory(inputs, mediated));
    return;
  }
  mplsSmIs(mplsRouteAndDirectAdjSmFactory(inputs));
}

const char* MplsRootSm::missingInput() const {
  const std::pair<bool, const char*> common[] = {
      {bool(mplsSmHelper_), "mplsSmHelper"},
      {taskScheduler_ != nullptr, "taskScheduler"},
      {bool(localLfibInfo_), "localLfibInfo"},
      {bool(mplsHwConfig_), "mplsHwConfig"},
      {bool(mplsHwStatus_), "mplsHwStatus"},
      {bool(mplsHwSingletonConfig_), "mplsHwSingletonConfig"},
      {bool(mplsHwSingletonStatus_), "mplsHwSingletonStatus"},
      {bool(lfibInfo_), "lfibInfo"},
      {bool(mplsRoutingInfo_), "mplsRoutingInfo"},
      {bool(routingHwMplsStatus_), "routingHwMplsStatus"},
      {bool(l3IntfTable_), "l3IntfTable"},
      {bool(routingHwRouteStatus_), "routingHwRouteStatus"},
      {bool(transitLfib_), "transitLfib"},
      {bool(lfibHwStatus_), "lfibHwStatus"},
      {bool(arpVosh_), "arpVosh"},
      {bool(proactiveArpNhSm_), "proactiveArpNhSm"},
      {bool(bridgingStatus_), "bridgingStatus"},
      {bool(mplsHwCollectionConfig_), "mplsHwCollectionConfig"},
      {bool(mplsHwCollectionStatus_), "mplsHwCollectionStatus"},
      {bool(hwFecIdRequest_), "hwFecIdRequest"},
      {bool(inputStatusSummary_), "inputStatusSummary"},
  };
  const std::pair<bool, const char*> mediated[] = {
      {bool(l3AdjSyncStatusExt_), "l3AdjSyncStatusExt"},
      {bool(hwFecIdResponse_), "hwFecIdResponse"},
      {bool(mplsMulticastFecRequest_), "mplsMulticastFecRequest"},
      {bool(mplsMulticastFecResponse_), "mplsMulticastFecResponse"},
      {bool(mcastGroupProgConfig_), "mcastGroupProgConfig"},
      {bool(mcastHwStatus_), "mcastHwStatus"},
  };
  for (const auto& [set, name] : common) {
    if (!set) return name;
  }
  if (adjacencyType_ != MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) return nullptr;
  for (const auto& [set, name] : mediated) {
    if (!set) return name;
  }
  return nullptr;
}

MplsBaseSm::Inputs MplsRootSm::coreInputs() const {
  MplsBaseSm::Inputs inputs;
  inputs.mplsHwSingletonConfig = mplsHwSingletonConfig_;
  inputs.mplsHwSingletonStatus = mplsHwSingletonStatus_;
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
  inputs.lfibStatus = lfibStatus_;
  return inputs;
}

void MplsRootSm::deleteSm() {
  PELLET_TRACE(trace_, kTraceRoot, "deleteSm");
  mplsSmDel();
  mplsSmInputStatusSmDel();
}

Kiv::Ptr<MplsRootSm> mplsRootSmFactory(
    Kiv::Ptr<const MplsProgrammingModeConfig> mplsProgrammingModeConfig,
    Kiv::Ptr<QelHelper::MplsSmHelper> mplsSmHelper, Kiv::Ptr<Korba::EntityManager> entityManager,
    Kiv::Ptr<Plin::AttrLogSm> attrLogSm, Plin::TaskScheduler* taskScheduler,
    Kiv::Ptr<const Mpls::LocalLfibInfo> localLfibInfo, Kiv::Ptr<MplsHwConfig> mplsHwConfig,
    Kiv::Ptr<MplsHwStatus> mplsHwStatus) {
  auto root = Kiv::make<MplsRootSm>(std::move(mplsProgrammingModeConfig), std::move(mplsSmHelper),
                                    std::move(entityManager), std::move(attrLogSm), taskScheduler,
                                    std::move(localLfibInfo), std::move(mplsHwConfig),
                                    std::move(mplsHwStatus));
  root->handleInitialized();
  return root;
}

}  // namespace Qel
