#pragma once
// One mounted path: the segment generation currently mapped, and the tables
// that point into it.
//
// A full collection first grows in place, into the slots reserved after its
// capacity. The writer's mount makes new generations: when a collection is
// full and so is its reservation (its capacity multiplied), when a collection
// first gets its record shape, and when a new mount's declarations differ
// from what a previous writer left. A new
// generation is a fresh segment holding a copy of every collection, slot for
// slot, with sequence counters and change ring as they were. Only then is the
// old one marked superseded and unlinked; readers that still map it keep a
// valid mapping until they notice and remap, so growth never stops them and
// loses nothing. Because slot numbers survive, a reader's view of which key
// lives where stays true across the move.

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kiv/Ptr.h"
#include "vosh/ChangeChannel.h"
#include "vosh/Layout.h"
#include "vosh/Segment.h"
#include "vosh/SharedAtomic.h"

namespace Vosh {

class TableBase;

class MountError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// 0 is the writer's mount; 1 and 3 are the two reading mounts. Both reading
// mounts map the segment read-only; the type is kept to tell how a path was
// mounted.
enum MountType : uint8_t { mountTypeWriter = 0, mountTypeReader = 1, mountTypeSharedReader = 3 };

struct CollectionDecl {
  std::string name;
  uint32_t initialCapacity = 1024;
  // Changes a reader may fall behind by before it must rescan; rounded up to
  // a power of two.
  uint32_t changeRingSize = kDefaultChangeRingSize;
  // Slots reserved so that the collection grows in place up to them (fewer
  // for large records, see kMaxReservedSlotBytes); 0 reserves nothing ahead.
  uint32_t reservedCapacity = kDefaultReservedCapacity;
};

class Mount : public Kiv::RefCounted {
 public:
  static Kiv::Ptr<Mount> writerMount(std::string_view prefix, std::string_view path,
                                     const std::vector<CollectionDecl>& collections);
  static Kiv::Ptr<Mount> readerMount(std::string_view prefix, std::string_view path,
                                     MountType type);

  const std::string& path() const noexcept { return path_; }
  const std::string& baseName() const noexcept { return baseName_; }
  MountType type() const noexcept { return type_; }
  bool writable() const noexcept { return type_ == mountTypeWriter; }
  bool open() const noexcept { return segment_ != nullptr; }
  uint32_t generation() const;
  std::string segmentName() const;

  // The directory of the generation mapped now; null when there is no such
  // collection.
  CollectionHeader* collection(std::string_view name) const;
  std::byte* base() const noexcept { return segment_->data(); }

  // Writer: gives a declared collection its record shape. A collection that
  // had another shape starts empty: its old bytes cannot be read as the new
  // records.
  void collectionShapeIs(std::string_view name, const RecordShape& shape);
  // Writer: raises a full collection's capacity, in place while its
  // reservation lasts.
  void collectionGrow(std::string_view name);

  // Reader: moves to the newest generation once the mapped one is superseded.
  void refresh() {
    if (!writable() && segment_ && loadAcquire(&segmentHeader(base())->superseded) != 0) remap();
  }

  void tableIs(TableBase* table) { tables_.push_back(table); }
  void tableDel(TableBase* table);
  // Unmounts: tables let go of the mapping, the segment is closed (never
  // unlinked) and a writer's lock is released.
  void close();

 private:
  Mount(std::string_view prefix, std::string_view path, MountType type);
  ~Mount() override;

  void attachWriter(const std::vector<CollectionDecl>& collections);
  void attachReader();
  std::unique_ptr<Segment> openNewestReadable() const;
  void retireOtherGenerations(const std::vector<uint32_t>& present, uint32_t kept) const;
  std::unique_ptr<Segment> makeGeneration(uint32_t generation,
                                          const std::vector<CollectionSpec>& specs) const;
  void relayout(const std::vector<CollectionSpec>& specs);
  void remap();
  void segmentIs(std::unique_ptr<Segment> segment);
  void wakeAllReaders() const;

  std::string path_;
  std::string baseName_;
  MountType type_;
  std::unique_ptr<Segment> segment_;
  std::vector<Kiv::Ptr<ChangeChannel>> channels_;
  std::vector<TableBase*> tables_;
};

}  // namespace Vosh
