#include "sim/SimSwitch.h"

#include "QelMpls/root/QelMplsRootSm.h"
#include "sim/SharedTables.h"

namespace Sim {

namespace {

Kiv::Ptr<Korba::EntityManager> stateDatabase(Plin::TaskScheduler* scheduler) {
  auto korba = Kiv::make<Korba::EntityManager>(scheduler);
  Qel::registerMplsKorbaTypes(*korba);
  return korba;
}

}  // namespace

SimSwitch::SimSwitch(Plin::TaskScheduler* scheduler, const Options& options)
    : scheduler_(scheduler),
      prefix_(options.prefix),
      driverConfig_(options.driver),
      fecAllocatorConfig_(options.fecAllocator),
      vosh_(Kiv::make<Vosh::EntityManager>(options.prefix, scheduler)),
      korba_(stateDatabase(scheduler)),
      lfib_(*vosh_, *korba_),
      interfaces_(*korba_),
      routing_(*korba_),
      arp_(*vosh_),
      fdb_(*vosh_),
      responder_(vosh_, arp_),
      platform_(*korba_),
      agent_(scheduler, korba_, options.prefix, options.mode) {
  if (options.externalDriver) return;
  fecAllocator_ = std::make_unique<FecAllocator>(prefix_, scheduler_, fecAllocatorConfig_);
  driver_ = std::make_unique<HwDriver>(vosh_, driverConfig_);
  driver_->fecAllocatorIs(fecAllocator_.get());
}

SimSwitch::~SimSwitch() { agent_.stop(); }

void SimSwitch::inputsIs(const InputSections& inputs) {
  for (const std::string& vrf : inputs.vrfs) routing_.vrfIs(vrf);
  for (const InterfaceSpec& given : inputs.interfaces) interfaces_.interfaceIs(given);
  for (const ArpSpec& given : inputs.arp) arp_.neighbourIs(given);
  for (const FdbSpec& given : inputs.fdb) fdb_.hostIs(given);
  if (!inputs.viaSets.empty()) lfib_.viaSetsIs(inputs.viaSets);
  for (const RouteRange& range : inputs.routes) lfib_.routesIs(range);
}

void SimSwitch::inputsDel(const InputKeys& keys) {
  for (const RouteRange& range : keys.routes) lfib_.routesDel(range);
  for (uint32_t id : keys.viaSets) lfib_.viaSetDel(id);
  for (const Bridging::HostKey& key : keys.fdb) fdb_.hostDel(key);
  for (const Arp::Table::ArpKey& key : keys.arp) arp_.neighbourDel(key);
  for (Bexo::IntfId name : keys.interfaces) interfaces_.interfaceDel(name);
  for (const std::string& vrf : keys.vrfs) routing_.vrfDel(vrf);
}

void SimSwitch::platformIs(const PlatformSpec& given) {
  driverConfig_.apply(given.driver);
  if (driver_) driver_->driverConfigIs(driverConfig_);
  fecAllocatorConfig_.apply(given.fecAllocator);
  if (fecAllocator_) fecAllocator_->configIs(fecAllocatorConfig_);
}

bool SimSwitch::driverTableExists() {
  return tableReadable(*vosh_, HwDriver::kRouteStatusPath) &&
         tableReadable(*vosh_, FecAllocator::kResponsePath) &&
         tableReadable(*vosh_, FecAllocator::kMulticastResponsePath) &&
         tableReadable(*vosh_, FecAllocatorStatus::kPath);
}

void SimSwitch::agentStart() {
  platform_.routeSyncMapReadyIs(driverTableExists());
  agent_.start();
  platform_.hwStatusIs(agent_.hwStatus());
}

void SimSwitch::agentStop() {
  platform_.hwStatusIs(nullptr);
  agent_.stop();
}

void SimSwitch::attachReaders() {
  responder_.attach();
  if (fecAllocator_) fecAllocator_->attach();
  if (driver_) driver_->attach();
  platform_.fecAllocatorAttach(*vosh_);
}

}  // namespace Sim
