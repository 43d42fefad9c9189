#include "SwitchFixture.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace QelTest {

namespace {
const char* kStatusPath = Qel::MplsRootSm::kHwRouteStatusPath;
const char* kConfigPath = Qel::MplsRootSm::kHwRouteConfigPath;

std::string uniquePrefix() {
  static int counter = 0;
  const char* base = std::getenv("QELMPLS_SHM_PREFIX");
  return std::string(base ? base : "qeltest") + "-" + std::to_string(getpid()) + "-" +
         std::to_string(++counter);
}
}  // namespace

TestDriver::TestDriver(Vosh::EntityManager& platform, bool ownsStatus) : platform_(platform) {
  if (!ownsStatus) return;
  platform_.mountWriter(kStatusPath, Vosh::Qel::MplsHwCollectionStatus::collections());
  status = Kiv::make<Vosh::Qel::MplsHwCollectionStatus>(platform_, kStatusPath);
}

void TestDriver::attach() {
  if (!platform_.mounted(kConfigPath)) platform_.mountReader(kConfigPath, Vosh::mountTypeReader);
  config = Kiv::make<Vosh::Qel::MplsHwCollectionConfig>(platform_, kConfigPath);
  routeConnection_ =
      config->onMplsHwRoute().connect([this](const Mpls::RouteKey& k) { answerRoute(k); });
  l2Connection_ = config->onL2Adjacency().connect([this](uint64_t id) { answerL2Adjacency(id); });
}

void TestDriver::answerRoute(const Mpls::RouteKey& key) {
  if (!answer) return;
  Vosh::Qel::MplsHwRouteConfig cfg = config->mplsHwRoute(key);
  if (!cfg) {
    programmed_.erase(key);
    status->mplsHwRouteDel(key);
    status->mplsRouteSyncMapDel(key);
    return;
  }
  bool fits = programmed_.contains(key) || programmed_.size() < routeCapacity;
  bool pointsSomewhere = cfg.adjacencyIdType == Vosh::Qel::adjIdTypeHardware
                             ? cfg.hwFecId() != 0
                             : config->l2AdjacencyHas(cfg.l2AdjId());
  if (fits && pointsSomewhere && !failLabels.contains(key.topLabel().value())) {
    programmed_.insert(key);
    status->mplsRouteSyncMapIs(key, Vosh::Qel::MplsRouteSyncMap{key, {}});
    routeStatusIs(key, cfg.version, Vosh::Qel::mplsHwRouteStateProgrammed);
    return;
  }
  programmed_.erase(key);
  status->mplsRouteSyncMapDel(key);
  routeStatusIs(
      key, cfg.version, Vosh::Qel::mplsHwRouteStateUnprogrammed,
      fits ? Vosh::Qel::mplsHwUnprogReasonInvalidFecId : Vosh::Qel::mplsHwUnprogReasonRouteFull);
}

void TestDriver::routeStatusIs(const Mpls::RouteKey& key, uint8_t version,
                               Vosh::Qel::MplsHwRouteState state,
                               Vosh::Qel::MplsHwRouteUnprogrammedReason reason) {
  Vosh::Qel::MplsHwRouteStatus st;
  st.routeKey = key;
  st.version = version;
  st.state = state;
  st.reason = reason;
  st.resourceFlag = reason == Vosh::Qel::mplsHwUnprogReasonRouteFull ? 1 : 0;
  status->mplsHwRouteIs(st);
}

void TestDriver::answerL2Adjacency(uint64_t id) {
  if (!answer) return;
  Vosh::Qel::MplsHwL2AdjacencyConfig cfg = config->l2Adjacency(id);
  if (!cfg) {
    status->l2AdjacencyDel(id);
    return;
  }
  Vosh::Qel::MplsHwL2AdjacencyStatus st;
  st.key = id;
  st.version = cfg.version();
  st.state = Vosh::Qel::mplsHwL2AdjStateProgrammed;
  status->l2AdjacencyIs(st);
}

TestFecAllocator::TestFecAllocator(Vosh::EntityManager& platform, Korba::EntityManager& korba,
                                   bool ownsResponses)
    : platform_(platform), korba_(korba) {
  if (!ownsResponses) return;
  for (const char* path :
       {Qel::MplsRootSm::kUnicastFecRespPath, Qel::MplsRootSm::kMulticastFecRespPath}) {
    platform_.mountWriter(path, Qel::FecIdToHwFecIdResponse::collections());
  }
  responses =
      Kiv::make<Qel::FecIdToHwFecIdResponse>(platform_, Qel::MplsRootSm::kUnicastFecRespPath);
}

void TestFecAllocator::attach() {
  const char* path = Qel::MplsRootSm::kUnicastFecReqPath;
  if (!platform_.mounted(path)) platform_.mountReader(path, Vosh::mountTypeReader);
  requests = Kiv::make<Qel::FecIdToHwFecIdRequest>(platform_, path);
  requestConnection_ = requests->onHwFecIdRequest().connect([this](const Vosh::Fib::FecId& f) {
    answerRequest(f);
    maybeReportSync();
  });
  readyConnection_ =
      requests->onSyncRequestsReady().connect([this](Qel::GenerationId) { maybeReportSync(); });
  answerAll();
}

void TestFecAllocator::answerAll() {
  std::vector<Vosh::Fib::FecId> filed;
  requests->forEachHwFecIdRequest(
      [&filed](const Vosh::Fib::FecId& f, const auto&) { filed.push_back(f); });
  for (const Vosh::Fib::FecId& f : filed) answerRequest(f);
  maybeReportSync();
}

void TestFecAllocator::answerRequest(const Vosh::Fib::FecId& fecId) {
  if (!answer) return;
  Qel::HwFecIdRequest request = requests->hwFecIdRequest(fecId);
  if (!request) {
    responses->hwFecIdDel(fecId);
    return;
  }
  responses->hwFecIdIs(fecId, Qel::HwFecIdResponse{fecId, hwFecIdOf(fecId), request});
}

void TestFecAllocator::maybeReportSync() {
  auto status =
      korba_.entityAs<Qel::QelL3AdjSyncStatusExternal>(korba_.cellPath("qel/sync/adjSyncStatus"));
  if (!answer || !status) return;
  Qel::GenerationId ready = 0;
  requests->forEachSyncRequestsReady(
      [&ready](Qel::GenerationId g, const Qel::SyncRequestsReady& r) {
        if (r.ready) ready = std::max(ready, g);
      });
  bool answered = true;
  requests->forEachHwFecIdRequest([&](const Vosh::Fib::FecId& f, const Qel::HwFecIdRequest& r) {
    answered = answered && responses->hwFecId(f).request == r;
  });
  if (ready == 0 || !answered || status->generation() == ready) return;
  status->generationIs(ready);
  status->adjSyncDoneIs(true);
}

SwitchFixture::SwitchFixture(bool platformAnswersHardware)
    : prefix(uniquePrefix()),
      korba(Kiv::make<Korba::EntityManager>(&scheduler)),
      platform(Kiv::make<Vosh::EntityManager>(prefix, &scheduler)),
      agentShm(Kiv::make<Vosh::EntityManager>(prefix, &scheduler)),
      driver(*platform, platformAnswersHardware),
      allocator(*platform, *korba, platformAnswersHardware) {
  Qel::featureTogglesReset();
  Qel::registerMplsKorbaTypes(*korba);
  platform->mountWriter(Qel::MplsRootSm::kTransitLfibPath, Mpls::LfibStatus::collections());
  lfib = Kiv::make<Mpls::LfibStatus>(*platform, Qel::MplsRootSm::kTransitLfibPath);
  platform->mountWriter(Qel::MplsRootSm::kArpStatusPath, Arp::Table::Status::collections());
  arp = Kiv::make<Arp::Table::Status>(*platform, Qel::MplsRootSm::kArpStatusPath);
  platform->mountWriter(Qel::MplsRootSm::kBridgingStatusPath,
                        Vosh::Bridging::Status::collections());
  fdb = Kiv::make<Vosh::Bridging::Status>(*platform, Qel::MplsRootSm::kBridgingStatusPath);

  routing = korbaEntity<Mpls::RoutingInfo>("routing/mpls/routingInfo/status");
  routing->mplsRoutingIs(true);
  l3Intfs = korbaEntity<QelL3Intf::Table>("qel/l3IntfTable");
  hwSingletonStatus = korbaEntity<Qel::MplsHwSingletonStatus>(
      korba->cellPath("hardware/qel/mplsHwSingletonStatus"));
  lfibInfo = korbaEntity<Mpls::LfibInfo>("routing/mpls/lfibInfo");
  modeConfig = Kiv::make<Qel::MplsProgrammingModeConfig>("modeConfig");
  localLfibInfo = Kiv::make<Mpls::LocalLfibInfo>("localLfibInfo");
  attrLog = Kiv::make<Plin::AttrLogSm>();
  helper = Kiv::make<TestHelper>("testHelper");
  hwConfig = Qel::mplsHwConfigFactory("mplsHwConfig");
  hwStatus = Qel::mplsHwStatusFactory("mplsHwStatus");
}

SwitchFixture::~SwitchFixture() {
  root = nullptr;
  Vosh::EntityManager::removeAll(prefix);
  if (!toggleDir.empty()) {
    std::filesystem::remove_all(toggleDir);
    unsetenv("QELMPLS_TOGGLE_DIR");
    Qel::featureTogglesReset();
  }
}

void SwitchFixture::startAgent(Qel::MplsSmAdjacencyProgrammer mode) {
  createRoot();
  modeConfig->adjacencyProgrammerIs(mode);
  settle();
  ASSERT_TRUE(root->mplsSm());
  driver.attach();
  if (mode == Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated) allocator.attach();
  settle();
}

void SwitchFixture::startCore() {
  modeConfig->adjacencyProgrammerIs(root->adjacencyType());
  scheduler.runUntil([this] { return root->mplsSm() != nullptr; }, 1.0);
  ASSERT_TRUE(root->mplsSm());
}

void SwitchFixture::runReviewPasses(uint64_t passes) {
  uint64_t target = sm()->reviewCount() + passes;
  for (int step = 0; step < 100000 && sm()->reviewCount() < target; ++step) {
    scheduler.advance(0.0001);
  }
  ASSERT_EQ(sm()->reviewCount(), target) << "review passes ran closer together than one step";
}

void SwitchFixture::featureToggleIs(const std::string& file, const std::string& toggle,
                                    bool value) {
  if (toggleDir.empty()) {
    toggleDir = (std::filesystem::temp_directory_path() / (prefix + "-toggles")).string();
    std::filesystem::create_directories(toggleDir);
    setenv("QELMPLS_TOGGLE_DIR", toggleDir.c_str(), 1);
  }
  std::ofstream(toggleDir + "/" + file)
      << "{\"" << toggle << "\": " << (value ? "true" : "false") << "}\n";
  Qel::featureTogglesReset();
}

void SwitchFixture::hostsAre() {
  interfaceIs("Ethernet1", 1006);
  interfaceIs("Ethernet2", 1007);
  interfaceIs("Vlan100", 100, false);
  arpIs("10.0.0.2", "Ethernet1", "00:00:5e:00:53:01");
  arpIs("10.0.1.2", "Ethernet2", "00:00:5e:00:53:02");
  arpIs("10.0.2.2", "Vlan100", "00:00:5e:00:53:03");
  arpIs("10.0.2.3", "Vlan100", "00:00:5e:00:53:04");
  fdbIs(100, "00:00:5e:00:53:03", "Ethernet3");
  fdbIs(100, "00:00:5e:00:53:04", "Ethernet3");
}

void SwitchFixture::mplsViaSetIs(
    uint32_t id, const std::vector<std::tuple<std::string, std::string, uint32_t>>& vias,
    uint32_t backupViaSet) {
  std::vector<Mpls::LfibMplsVia> made;
  for (const auto& [nextHop, intf, label] : vias) {
    made.push_back(mplsVia(nextHop, intf, Bexo::mplsActionSwap, {Bexo::MplsLabel(label)}));
  }
  viaSetIs(id, std::move(made), backupViaSet);
}

Mpls::LfibMplsVia SwitchFixture::mplsVia(const std::string& nextHop, const std::string& intf,
                                         Bexo::MplsLabelAction action, Bexo::MplsLabelStack labels,
                                         Mpls::PayloadType payload) {
  Mpls::LfibMplsVia via;
  via.labelOperation = Bexo::UnboundedMplsLabelOperation(action, labels);
  via.intf = Bexo::IntfId::fromString(intf);
  via.nextHop = Bexo::IpGenAddr::fromString(nextHop);
  via.payloadType = payload;
  return via;
}

void SwitchFixture::viaSetIs(uint32_t id, std::vector<Mpls::LfibMplsVia> vias,
                             uint32_t backupViaSet) {
  Mpls::LfibViaSet set(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, id));
  if (backupViaSet) set.backupViaSetKeyIs(Mpls::LfibViaSetKey(Mpls::viaTypeMplsIp, backupViaSet));
  uint32_t position = 0;
  for (Mpls::LfibMplsVia& via : vias) {
    via.viaKey = Mpls::LfibViaKey(Mpls::viaTypeMplsIp, nextViaIndex++);
    lfib->mplsViaIs(via);
    set.viaKeyIs(Mpls::LfibViaIndexRange(position++), via.viaKey);
  }
  lfib->viaSetIs(set);
}

Mpls::LfibViaKey SwitchFixture::externalFecViaIs() {
  Mpls::LfibViaKey key(Mpls::viaTypeExternalFec, nextViaIndex++);
  lfib->extFecViaIs(key, Mpls::LfibExternalFecVia{key, 0x0900000000000011ULL});
  return key;
}

void SwitchFixture::externalFecViaSetIs(uint32_t id) {
  Mpls::LfibViaSet set(Mpls::LfibViaSetKey(Mpls::viaTypeExternalFec, id));
  set.viaKeyIs(Mpls::LfibViaIndexRange(0), externalFecViaIs());
  lfib->viaSetIs(set);
}

void SwitchFixture::routeIs(uint32_t label, uint32_t viaSet, Mpls::LfibViaType type,
                            uint8_t flags) {
  Mpls::LfibRoute route;
  route.routeKey = Mpls::RouteKey(Bexo::MplsLabel(label));
  route.viaSetKey = Mpls::LfibViaSetKey(type, viaSet);
  route.viaType = type;
  route.flags = flags;
  lfib->routeIs(route);
}

void SwitchFixture::expectNoRouteResourcesLeft() const {
  const Qel::MplsState* s = state();
  EXPECT_EQ(s->routes(), 0u);
  EXPECT_EQ(s->l3Adjacencys(), 0u);
  EXPECT_EQ(s->l2Adjacencys(), 0u);
  EXPECT_EQ(s->mplsNextHops(), 0u);
  EXPECT_EQ(s->fdbToL3AdjIdxs(), 0u);
  EXPECT_EQ(s->lFibViaSetToL3Adjs(), 0u);
  EXPECT_EQ(s->l2AdjPendingForDeletes(), 0u);
  EXPECT_EQ(s->unprogrammedRoutes(), 0u);
  EXPECT_EQ(sm()->viaSetToHwL2Adjs(), 0u);
  EXPECT_EQ(hwRoutes(), 0u);
  EXPECT_EQ(hwL2Adjacencies(), 0u);
  EXPECT_EQ(root->proactiveArpNexthop()->requests(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->routes(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->adjacencys(), 0u);
  EXPECT_EQ(root->routingHwMplsStatus()->l2Adjacencys(), 0u);
  EXPECT_EQ(root->lfibHwStatus()->viaSets(), 0u);
  EXPECT_EQ(filedFecRecords(), 0u);
}

size_t SwitchFixture::filedFecRecords() const {
  const Qel::FecIdToHwFecIdRequest& r = *root->hwFecIdRequest();
  return r.hwFecIdRequests() + r.fecs() + r.fec6s() + r.adjSyncIdMaps() + r.objTupleToFecIds();
}

Vosh::Fib::FecId SwitchFixture::fecIdOf(uint32_t viaSet) const {
  return allocator.requests->objTupleToFecId(static_cast<uint64_t>(Mpls::viaTypeMplsIp) << 32 |
                                             viaSet);
}

Vosh::Fib::Fec SwitchFixture::filedFec(uint32_t viaSet) const {
  Vosh::Fib::FecId fecId = fecIdOf(viaSet);
  if (fecId.adjType() == Vosh::Fib::AdjType::mpls6Adj) return allocator.requests->fec6(fecId);
  return allocator.requests->fec(fecId);
}

}  // namespace QelTest
