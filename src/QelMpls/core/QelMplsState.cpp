#include "QelMpls/core/QelMplsState.h"

#include <fmt/format.h>

#include <stdexcept>

namespace Qel {

IpAddrIntfId::IpAddrIntfId(std::string_view text) {
  auto slash = text.rfind('/');
  if (slash == std::string_view::npos) {
    throw std::invalid_argument(
        fmt::format("bad next hop '{}': expected ADDRESS/INTERFACE", text));
  }
  addr = Bexo::IpGenAddr::fromString(text.substr(0, slash));
  intf = Bexo::IntfId::fromString(text.substr(slash + 1));
}

std::string IpAddrIntfId::stringValue() const { return fmt::format("{}/{}", addr, intf); }

Kiv::Ptr<MplsRoute> MplsState::routeIs(const Mpls::RouteKey& key) {
  if (const auto* existing = routeFind(key)) return *existing;
  auto r = Kiv::make<MplsRoute>(key);
  routeIs(key, r);
  return r;
}

Kiv::Ptr<L3Adjacency> MplsState::l3AdjacencyIs(L3AdjIndex index) {
  if (const auto* existing = l3AdjacencyFind(index)) return *existing;
  auto a = Kiv::make<L3Adjacency>(index);
  l3AdjacencyIs(index, a);
  return a;
}

Kiv::Ptr<MplsNextHop> MplsState::mplsNextHopIs(const IpAddrIntfId& key) {
  if (const auto* existing = mplsNextHopFind(key)) return *existing;
  auto n = Kiv::make<MplsNextHop>(key);
  mplsNextHopIs(key, n);
  return n;
}

Kiv::Ptr<MplsFdbEntry> MplsState::fdbToL3AdjIdxIs(const Bridging::HostKey& key) {
  if (const auto* existing = fdbToL3AdjIdxFind(key)) return *existing;
  auto e = Kiv::make<MplsFdbEntry>(key);
  fdbToL3AdjIdxIs(key, e);
  return e;
}

Kiv::Ptr<ExternalFecInfo> MplsState::extFecInfoIs(Vosh::Fib::FecId fecId) {
  if (const auto* existing = extFecInfoFind(fecId)) return *existing;
  auto e = Kiv::make<ExternalFecInfo>(fecId);
  extFecInfoIs(fecId, e);
  return e;
}

L3AdjLFibAdjType l3AdjLFibAdjType(const CachedLFibMplsViaColl* vias) {
  if (!vias) return L3AdjLFibAdjType::adjTypeUnknown;
  bool nexthopGroup = false;
  for (const auto& [index, via] : vias->viaColl()) {
    if (Bexo::DynamicTunnelIntfId::isDynamicTunnelIntfId(via.intf)) {
      return L3AdjLFibAdjType::adjTypeDynamicTunnel;
    }
    if (Bexo::FecIdIntfId::isNexthopGroupIdIntfId(via.intf)) nexthopGroup = true;
  }
  return nexthopGroup ? L3AdjLFibAdjType::adjTypeNexthopGroup : L3AdjLFibAdjType::adjTypeRegular;
}

void MplsSmStartupRecord::updateMplsSmStartupRecord(MplsSmStartupStatus newStage, double now) {
  timeTaken_[lastStage()] += now - lastStageTime();
  lastStageIs(newStage);
  lastStageTimeIs(now);
}

void MplsSmStartupRecord::clearAndInitialize(double now) {
  timeTaken_.clear();
  lastStageIs(MplsSmStartupStatus::mplsSmUnknown);
  lastStageTimeIs(now);
}

Kiv::Ptr<MplsSmStartupRecord> mplsSmStartupRecordFactory(const std::string& name) {
  return Kiv::make<MplsSmStartupRecord>(name);
}

Kiv::Ptr<MplsSmInputSummary> mplsSmInputSummaryFactory() {
  return Kiv::make<MplsSmInputSummary>("inputStatusSummary");
}

}  // namespace Qel
