#include "sim/LfibProducer.h"

#include <algorithm>

namespace Sim {

namespace {

using T = Mpls::LfibViaType;

Mpls::LfibIpLookupVia ipLookupVia(const Mpls::LfibViaKey& key, const ViaSpec& via) {
  Mpls::LfibIpLookupVia out;
  out.viaKey = key;
  std::copy_n(via.vrf.begin(), std::min(via.vrf.size(), out.vrfName.size() - 1),
              out.vrfName.begin());
  out.payloadType = via.payload;
  return out;
}

}  // namespace

LfibProducer::LfibProducer(Vosh::EntityManager& em, Korba::EntityManager& korba)
    : lfibInfo_(Kiv::make<Mpls::LfibInfo>(kLfibInfoPath)) {
  em.mountWriter(kLfibPath, Mpls::LfibStatus::collections());
  lfib_ = Kiv::make<Mpls::LfibStatus>(em, kLfibPath);
  // NOTE: routes first, then via sets, then their vias.
  lfib_->routeDelAll();
  lfib_->viaSetDelAll();
  lfib_->mplsViaDelAll();
  lfib_->extFecViaDelAll();
  lfib_->ipLookupViaDelAll();
  lfib_->vlanViaDelAll();
  lfib_->evpnVlanAwareViaDelAll();
  lfib_->pwViaDelAll();
  lfib_->dot1qTagToVlanDelAll();
  korba.entityIs(kLfibInfoPath, Mpls::LfibInfo::kTypeName, lfibInfo_);
}

void LfibProducer::viaSetsIs(const std::vector<ViaSetSpec>& viaSets) {
  // Vias a replaced set no longer lists go once the set stops listing them.
  std::vector<std::pair<ViaSetSpec, uint32_t>> surplus;
  for (const ViaSetSpec& given : viaSets) {
    auto old = viaSets_.find(given.id);
    if (old != viaSets_.end() && old->second.vias.size() > given.vias.size()) {
      surplus.emplace_back(old->second, static_cast<uint32_t>(given.vias.size()));
    }
    viaSets_[given.id] = given;
    writeVias(given);
  }
  for (const ViaSetSpec& given : viaSets) lfib_->viaSetIs(viaSetRecord(given));
  for (const auto& [old, from] : surplus) deleteVias(old, from);
}

Mpls::LfibViaSet LfibProducer::viaSetRecord(const ViaSetSpec& given) const {
  Mpls::LfibViaSet record(given.key());
  for (uint32_t i = 0; i < given.vias.size(); ++i) {
    record.viaKeyIs(Mpls::LfibViaIndexRange(i), given.viaKey(i));
  }
  record.usableAsPrimaryViasIs(given.usableAsPrimary);
  if (given.backup != 0) {
    auto backup = viaSets_.find(given.backup);
    if (backup != viaSets_.end()) record.backupViaSetKeyIs(backup->second.key());
  }
  return record;
}

void LfibProducer::writeVias(const ViaSetSpec& given) {
  for (uint32_t i = 0; i < given.vias.size(); ++i) {
    const ViaSpec& via = given.vias[i];
    const Mpls::LfibViaKey key = given.viaKey(i);
    switch (given.type) {
      case T::viaTypeMplsIp:
        lfib_->mplsViaIs(Mpls::LfibMplsVia{key, via.labelOperation, via.intf, via.nextHop,
                                           via.payload, via.weight});
        break;
      case T::viaTypeExternalFec:
        lfib_->extFecViaIs(key, Mpls::LfibExternalFecVia{key, via.fecId});
        break;
      case T::viaTypeIpLookup:
        lfib_->ipLookupViaIs(key, ipLookupVia(key, via));
        break;
      case T::viaTypeVlan:
      case T::viaTypeEvpnVlanFlood:
        lfib_->vlanViaIs(key,
                         Mpls::LfibVlanVia{key, via.vlan, given.type == T::viaTypeEvpnVlanFlood});
        break;
      case T::viaTypeMplsPseudowire:
        lfib_->pwViaIs(key, Mpls::LfibPwVia{key, via.pwIntf});
        break;
      default:
        break;
    }
  }
}

// The vias of `given` from position `from` on.
void LfibProducer::deleteVias(const ViaSetSpec& given, uint32_t from) {
  for (uint32_t i = from; i < given.vias.size(); ++i) deleteVia(given.type, given.viaKey(i));
}

void LfibProducer::deleteVia(Mpls::LfibViaType type, const Mpls::LfibViaKey& key) {
  switch (type) {
    case T::viaTypeMplsIp:
      lfib_->mplsViaDel(key);
      break;
    case T::viaTypeExternalFec:
      lfib_->extFecViaDel(key);
      break;
    case T::viaTypeIpLookup:
      lfib_->ipLookupViaDel(key);
      break;
    case T::viaTypeVlan:
    case T::viaTypeEvpnVlanFlood:
      lfib_->vlanViaDel(key);
      break;
    case T::viaTypeMplsPseudowire:
      lfib_->pwViaDel(key);
      break;
    default:
      break;
  }
}

void LfibProducer::viaSetDel(uint32_t id) {
  auto it = viaSets_.find(id);
  if (it == viaSets_.end()) return;
  lfib_->viaSetDel(it->second.key());
  deleteVias(it->second, 0);
}

void LfibProducer::routesIs(const RouteRange& range) {
  const ViaSetSpec& viaSet = viaSets_.at(range.viaSet);
  for (uint64_t label = range.first; label <= range.last; ++label) {
    Mpls::LfibRoute route;
    route.routeKey = range.routeKey(static_cast<uint32_t>(label));
    route.viaSetKey = viaSet.key();
    route.viaType = viaSet.type;
    lfib_->routeIs(route);
  }
}

void LfibProducer::routesDel(const RouteRange& range) {
  for (uint64_t label = range.first; label <= range.last; ++label) {
    lfib_->routeDel(range.routeKey(static_cast<uint32_t>(label)));
  }
}

}  // namespace Sim
