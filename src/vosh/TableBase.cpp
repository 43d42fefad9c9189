#include "vosh/TableBase.h"

#include <algorithm>

#include <fmt/format.h>

namespace Vosh {

TableBase::TableBase(Kiv::Ptr<Mount> mount, std::string collection, const RecordShape& shape,
                     Plin::TaskScheduler* scheduler)
    : mount_(std::move(mount)),
      collection_(std::move(collection)),
      shape_(shape),
      writable_(mount_->writable()),
      channel_(ChangeChannel::of(mount_->baseName(), collection_)) {
  bind();
  mount_->tableIs(this);
  if (writable_) return;
  channel_->readerIs(this);
  pollTask_.emplace(scheduler, kPollTaskPriority,
                    fmt::format("VoshPoll {} {}", mount_->path(), collection_),
                    [this] { runPollTask(); });
  rearmPollTask();
}

TableBase::~TableBase() {
  if (!mounted_) return;
  mount_->tableDel(this);
  if (!writable_) channel_->readerDel(this);
}

bool TableBase::bind() {
  CollectionHeader* h = mount_->open() ? mount_->collection(collection_) : nullptr;
  if (h && h->kind != RecordKind::untyped && recordShape(*h) != shape_) {
    fmt::print(stderr, "vosh: {} {}: records of another shape, not visible here\n", mount_->path(),
               collection_);
    h = nullptr;
  }
  if (!h || h->kind == RecordKind::untyped) {
    bound_ = false;
    header_ = nullptr;
    slots_ = nullptr;
    overflows_ = nullptr;
    ring_ = ChangeRing();
    return false;
  }
  header_ = h;
  slots_ = mount_->base() + h->slotsOffset;
  overflows_ = mount_->base() + h->overflowOffset;
  geometry_ = slotGeometry(*h);
  ring_ = ChangeRing(h, reinterpret_cast<uint32_t*>(mount_->base() + h->ringOffset));
  bound_ = true;
  return true;
}

void TableBase::handleRemap() {
  bool wasBound = bound_;
  if (bind()) {
    handleRebound();
  } else if (wasBound) {
    handleUnbound(true);
  }
}

void TableBase::handleUnmount() {
  handleUnbound(false);
  mounted_ = false;
  if (pollTask_) pollTask_->cancel();
  if (!writable_) channel_->readerDel(this);
  bound_ = false;
  header_ = nullptr;
  slots_ = nullptr;
  ring_ = ChangeRing();
}

uint32_t TableBase::takeSlot() {
  if (!freeSlots_.empty()) {
    uint32_t slot = freeSlots_.back();
    freeSlots_.pop_back();
    return slot;
  }
  if (header_->highWater >= capacity()) mount_->collectionGrow(collection_);
  uint32_t slot = header_->highWater;
  storeRelease(&header_->highWater, slot + 1);
  return slot;
}

void TableBase::slotsReset() {
  freeSlots_.clear();
  storeRelease(&header_->highWater, 0u);
}

void TableBase::freeSlotsIs(std::vector<uint32_t> ascending) {
  // Handed out from the back: lowest first keeps the used slots dense.
  std::reverse(ascending.begin(), ascending.end());
  freeSlots_ = std::move(ascending);
}

void TableBase::scheduleDelivery() const {
  if (pollTask_ && mounted_ && !pollTask_->running()) pollTask_->scheduleNow();
}

void TableBase::rearmPollTask() const {
  if (mounted_ && !pollTask_->scheduler()->isVirtual()) pollTask_->scheduleAfter(kPollInterval);
}

void TableBase::logCorruption(const void* key, uint32_t keyBytes) const {
  const auto* bytes = static_cast<const unsigned char*>(key);
  fmt::print(stderr, "vosh: {} {}: corrupt record, key bytes {:02x}\n", mount_->path(), collection_,
             fmt::join(bytes, bytes + keyBytes, ""));
}

}  // namespace Vosh
