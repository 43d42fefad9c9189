#include "QelMpls/platform/QelMplsVoshTypes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace Vosh::Qel {

MplsHwL2ViaIndex::MplsHwL2ViaIndex(uint32_t value) : value_(static_cast<uint16_t>(value)) {
  if (value > max) {
    throw std::out_of_range(
        "MplsHwL2ViaIndex::value < MplsHwL2ViaIndex::min or > MplsHwL2ViaIndex::max not allowed");
  }
}

std::string MplsHwRouteConfig::stringValue() const {
  return fmt::format(
      "Value('Vosh::Qel::MplsHwRouteConfig', ** {{'routeKey': {}, 'labelAction': {}, "
      "'payloadType': {}, 'addressing': {}, 'adjacencyIdType': {}, 'adjacencyId': {}, "
      "'version': {}}})",
      routeKey, labelAction, payloadType, addressing, adjacencyIdType, adjacencyId, version);
}

bool operator==(const MplsHwRouteConfig& a, const MplsHwRouteConfig& b) {
  return a.routeKey == b.routeKey && a.labelAction == b.labelAction &&
         a.payloadType == b.payloadType && a.addressing == b.addressing &&
         a.adjacencyIdType == b.adjacencyIdType && a.adjacencyId == b.adjacencyId &&
         a.version == b.version;
}

std::string MplsHwRouteStatus::stringValue() const {
  return fmt::format(
      "Value('Vosh::Qel::MplsHwRouteStatus', ** {{'routeKey': {}, 'state': {}, 'reason': {}, "
      "'version': {}}})",
      routeKey, state, reason, version);
}

bool operator==(const MplsHwRouteStatus& a, const MplsHwRouteStatus& b) {
  return a.routeKey == b.routeKey && a.state == b.state && a.reason == b.reason &&
         a.version == b.version && a.resourceFlag == b.resourceFlag;
}

const Mpls::Hardware::L2Via& MplsHwL2AdjacencyConfig::l2Via(MplsHwL2ViaIndex index) const {
  return vias_[index.value()];
}

void MplsHwL2AdjacencyConfig::l2ViaIs(MplsHwL2ViaIndex index, const Mpls::Hardware::L2Via& via) {
  vias_[index.value()] = via;
  if (index.value() >= count_) count_ = index.value() + 1u;
}

void MplsHwL2AdjacencyConfig::l2ViaDel(MplsHwL2ViaIndex index) {
  if (index.value() >= count_) return;
  vias_[index.value()] = Mpls::Hardware::L2Via();
  // The count ends on a used via: emptied vias at the end go with the last.
  while (count_ > 0 && vias_[count_ - 1] == Mpls::Hardware::L2Via()) --count_;
}

// Vias past the count must read as empty: a later l2ViaIs beyond the count
// exposes every slot up to it, and they are serialised as they stand.
void MplsHwL2AdjacencyConfig::l2ViaDelAll() {
  std::fill_n(vias_.begin(), count_, Mpls::Hardware::L2Via());
  count_ = 0;
}

namespace {
struct L2AdjacencyHeader {
  uint64_t key;
  uint8_t version;
  uint8_t reserved[3];
  uint32_t count;
};
static_assert(sizeof(L2AdjacencyHeader) == MplsHwL2AdjacencyConfig::kHeaderSize);
}  // namespace

size_t MplsHwL2AdjacencyConfig::serialize(std::byte* out) const {
  L2AdjacencyHeader h{key_, version_, {0, 0, 0}, count_};
  std::memcpy(out, &h, sizeof h);
  std::memcpy(out + sizeof h, vias_.data(), count_ * sizeof(Mpls::Hardware::L2Via));
  return serializedSize();
}

bool MplsHwL2AdjacencyConfig::deserialize(const std::byte* in, size_t len,
                                          MplsHwL2AdjacencyConfig& out) {
  L2AdjacencyHeader h;
  if (len < sizeof h) return false;
  std::memcpy(&h, in, sizeof h);
  if (h.count > kMaxVias || len != sizeof h + h.count * sizeof(Mpls::Hardware::L2Via)) {
    return false;
  }
  // Clearing only what the old count covered keeps the vias past the new
  // count empty without building and copying a whole 5.6 KiB record.
  if (out.count_ > h.count) {
    std::fill(out.vias_.begin() + h.count, out.vias_.begin() + out.count_, Mpls::Hardware::L2Via());
  }
  out.key_ = h.key;
  out.version_ = h.version;
  out.count_ = h.count;
  std::memcpy(out.vias_.data(), in + sizeof h, h.count * sizeof(Mpls::Hardware::L2Via));
  return true;
}

std::string MplsHwL2AdjacencyConfig::stringValue() const {
  std::string vias = "[";
  for (uint32_t i = 0; i < count_; ++i) {
    if (i) vias += ", ";
    vias += vias_[i].stringValue();
  }
  vias += "]";
  return fmt::format(
      "Value('Vosh::Qel::MplsHwL2AdjacencyConfig', ** {{'key': {}, 'version': {}, 'l2Via': {}}})",
      key_, version_, vias);
}

bool operator==(const MplsHwL2AdjacencyConfig& a, const MplsHwL2AdjacencyConfig& b) {
  if (a.key_ != b.key_ || a.version_ != b.version_ || a.count_ != b.count_) return false;
  for (uint32_t i = 0; i < a.count_; ++i)
    if (!(a.vias_[i] == b.vias_[i])) return false;
  return true;
}

std::string MplsHwL2AdjacencyStatus::stringValue() const {
  return fmt::format(
      "Value('Vosh::Qel::MplsHwL2AdjacencyStatus', ** {{'key': {}, 'state': {}, 'version': {}}})",
      key, state, version);
}

bool operator==(const MplsHwL2AdjacencyStatus& a, const MplsHwL2AdjacencyStatus& b) {
  return a.key == b.key && a.state == b.state && a.version == b.version;
}

std::string MplsRouteSyncMap::stringValue() const {
  return fmt::format("Value('Vosh::Qel::MplsRouteSyncMap', ** {{'routeKey': {}, 'syncId': {}}})",
                     routeKey, syncId);
}

}  // namespace Vosh::Qel

namespace Qel {

std::string MplsHwRoute::stringValue() const {
  return fmt::format(
      "Value('Qel::MplsHwRoute', ** {{'routeKey': {}, 'l2Adjacency': {}, 'version': {}}})",
      routeKey, l2Adjacency ? l2Adjacency->index() : 0, version);
}

std::string McastHwId::stringValue() const {
  return fmt::format("Value('Qel::McastHwId', ** {{'valid': {}, 'value': {}}})", valid, value);
}

Kiv::Ptr<MplsHwConfig> mplsHwConfigFactory(const std::string& name) {
  return Kiv::make<MplsHwConfig>(name);
}

Kiv::Ptr<MplsHwStatus> mplsHwStatusFactory(const std::string& name) {
  return Kiv::make<MplsHwStatus>(name);
}

}  // namespace Qel
