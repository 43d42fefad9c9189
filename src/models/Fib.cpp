#include "models/Fib.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace Vosh::Fib {

std::string FecId::stringValue() const { return fmt::format("{:#018x}", value_); }

namespace {
struct FecHeader {
  uint64_t fecId;
  uint64_t backupFecId;
  uint32_t viaCount;
  uint32_t reserved;
};
static_assert(sizeof(FecHeader) == Fec::kHeaderSize);
}  // namespace

size_t Fec::serialize(std::byte* out) const {
  FecHeader h{fecId.value(), backupFecId.value(), viaCount, 0};
  std::memcpy(out, &h, sizeof h);
  std::memcpy(out + sizeof h, via.data(), viaCount * sizeof(FecVia));
  return sizeof h + viaCount * sizeof(FecVia);
}

bool Fec::deserialize(const std::byte* in, size_t length, Fec& out) {
  FecHeader h;
  if (length < sizeof h) return false;
  std::memcpy(&h, in, sizeof h);
  if (h.viaCount > kMaxVias || length != sizeof h + h.viaCount * sizeof(FecVia)) return false;
  out.fecId = FecId(h.fecId);
  out.backupFecId = FecId(h.backupFecId);
  out.viaCount = h.viaCount;
  std::memcpy(static_cast<void*>(out.via.data()), in + sizeof h, h.viaCount * sizeof(FecVia));
  return true;
}

bool operator==(const Fec& a, const Fec& b) {
  if (a.fecId != b.fecId || a.backupFecId != b.backupFecId || a.viaCount != b.viaCount) {
    return false;
  }
  return std::equal(a.via.begin(), a.via.begin() + a.viaCount, b.via.begin());
}

}  // namespace Vosh::Fib

namespace Qel {

std::string AdjSyncId::stringValue() const { return fmt::format("{}.{}", generation, sequence); }

}  // namespace Qel
