#pragma once
// What every table view has regardless of its key and record types: its place
// in the mapped segment, the writer's slot allocation, and the reader's poll
// task.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kiv/Ptr.h"
#include "plin/TaskScheduler.h"
#include "vosh/ChangeChannel.h"
#include "vosh/ChangeRing.h"
#include "vosh/Layout.h"
#include "vosh/Mount.h"
#include "vosh/Slot.h"

namespace Vosh {

// A reader in real time looks at the change ring this often when nothing in
// its own process woke it.
inline constexpr double kPollInterval = 0.001;
inline constexpr Plin::TaskPriority kPollTaskPriority = 1;

class TableBase : public Kiv::RefCounted {
 public:
  const std::string& path() const noexcept { return mount_->path(); }
  const std::string& collection() const noexcept { return collection_; }
  bool writable() const noexcept { return writable_; }
  bool mounted() const noexcept { return mounted_; }
  // Slots usable in the generation mapped now (the writer raises it in
  // place); 0 when the collection is not there.
  uint32_t capacity() const noexcept { return bound_ ? loadAcquire(&header_->capacity) : 0; }

  // Reader: takes in the writer's changes now; their notifications still
  // come from the event loop.
  virtual void poll() const = 0;

  // A writer in this process changed the collection.
  void wake() {
    if (pollTask_) pollTask_->scheduleNow();
  }
  // The mount mapped another generation.
  void handleRemap();
  void handleUnmount();

 protected:
  TableBase(Kiv::Ptr<Mount> mount, std::string collection, const RecordShape& shape,
            Plin::TaskScheduler* scheduler);
  ~TableBase() override;

  // The collection is there again, possibly moved or grown.
  virtual void handleRebound() = 0;
  // The collection is gone from the view: forget it, telling watchers when
  // `notify`.
  virtual void handleUnbound(bool notify) = 0;
  virtual void runPollTask() = 0;

  bool bound() const noexcept { return bound_; }
  Mount& mount() const noexcept { return *mount_; }
  const SlotGeometry& geometry() const noexcept { return geometry_; }
  std::byte* slotAt(uint32_t slot) const noexcept {
    return slots_ + size_t{slot} * geometry_.slotBytes;
  }
  std::byte* overflowAt(uint32_t slot) const noexcept {
    return overflows_ + size_t{slot} * geometry_.overflowBytes;
  }
  uint32_t highWater() const noexcept {
    return std::min(loadAcquire(&header_->highWater), loadAcquire(&header_->capacity));
  }
  const ChangeRing& ring() const noexcept { return ring_; }

  // Writer: a free slot, growing the collection when there is none left.
  uint32_t takeSlot();
  void releaseSlot(uint32_t slot) { freeSlots_.push_back(slot); }
  // Writer: after a delete-all, slots are handed out from the first again.
  void slotsReset();
  // Writer: the free slots below the high-water mark found by a recovery
  // scan, lowest first.
  void freeSlotsIs(std::vector<uint32_t> ascending);
  void publishChange(uint32_t slot) {
    ring_.append(slot);
    if (channel_->hasReaders()) channel_->wakeReaders();
  }

  // Reader.
  Plin::Task& pollTask() const { return *pollTask_; }
  void scheduleDelivery() const;
  void rearmPollTask() const;
  void logCorruption(const void* key, uint32_t keyBytes) const;

 private:
  bool bind();

  Kiv::Ptr<Mount> mount_;
  std::string collection_;
  RecordShape shape_;
  bool writable_;
  bool mounted_ = true;
  bool bound_ = false;
  CollectionHeader* header_ = nullptr;
  std::byte* slots_ = nullptr;
  std::byte* overflows_ = nullptr;
  SlotGeometry geometry_;
  ChangeRing ring_;
  Kiv::Ptr<ChangeChannel> channel_;
  std::vector<uint32_t> freeSlots_;
  mutable std::optional<Plin::Task> pollTask_;
};

}  // namespace Vosh
