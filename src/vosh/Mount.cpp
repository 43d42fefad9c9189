#include "vosh/Mount.h"

#include <climits>
#include <cstring>

#include <fmt/format.h>

#include "kiv/Assert.h"
#include "vosh/SegmentName.h"
#include "vosh/Slot.h"
#include "vosh/TableBase.h"

namespace Vosh {

namespace {

// Growth past a reservation copies the whole segment, the other collections
// included, so it should happen few times; the slots a new generation
// reserves ahead cost address space, not memory, until used.
constexpr uint32_t kGrowthFactor = 4;

uint32_t roundUpToPowerOfTwo(uint32_t n) {
  uint32_t p = 1;
  while (p < n && p < kMaxCapacity) p <<= 1;
  return p;
}

void checkDeclarations(std::string_view path, const std::vector<CollectionDecl>& decls) {
  if (decls.empty()) throw MountError(fmt::format("vosh: {}: a writer declares collections", path));
  for (size_t i = 0; i < decls.size(); ++i) {
    const CollectionDecl& d = decls[i];
    if (d.name.empty() || d.name.size() >= kCollectionNameBytes) {
      throw MountError(fmt::format("vosh: {}: bad collection name '{}'", path, d.name));
    }
    if (d.initialCapacity == 0 || d.initialCapacity > kMaxCapacity) {
      throw MountError(
          fmt::format("vosh: {}: collection {} has capacity {}", path, d.name, d.initialCapacity));
    }
    for (size_t j = 0; j < i; ++j) {
      if (decls[j].name == d.name) {
        throw MountError(fmt::format("vosh: {}: collection {} declared twice", path, d.name));
      }
    }
  }
}

// The layout a writer's declarations ask for, keeping what a previous writer
// left where it can: a collection keeps its record shape and never shrinks.
std::vector<CollectionSpec> wantedSpecs(const std::vector<CollectionDecl>& decls,
                                        const std::vector<CollectionSpec>& existing) {
  std::vector<CollectionSpec> wanted;
  wanted.reserve(decls.size());
  for (const CollectionDecl& d : decls) {
    CollectionSpec given{d.name, RecordShape{}, d.initialCapacity,
                         roundUpToPowerOfTwo(std::max(d.changeRingSize, 1u)), d.reservedCapacity};
    for (const CollectionSpec& e : existing) {
      if (e.name != d.name || e.shape.kind == RecordKind::untyped) continue;
      given.shape = e.shape;
      given.capacity = std::max(given.capacity, e.capacity);
      given.reservedSlots = e.reservedSlots;
    }
    wanted.push_back(given);
  }
  return wanted;
}

const CollectionHeader* findCollection(const std::byte* base, std::string_view name) {
  const CollectionHeader* c = collectionHeaders(base);
  for (uint32_t i = 0; i < segmentHeader(base)->collectionCount; ++i) {
    if (collectionName(c[i]) == name) return &c[i];
  }
  return nullptr;
}

// Only what each slot uses is copied: the untouched rest of the new segment
// stays unallocated, and growing another collection of the same segment does
// not cost a collection's whole slot area.
void copySerializedSlots(const std::byte* fromBase, const CollectionHeader& from, std::byte* toBase,
                         const CollectionHeader& to, uint32_t slots) {
  const SlotGeometry g = slotGeometry(from);
  for (uint32_t i = 0; i < slots; ++i) {
    const std::byte* src = fromBase + from.slotsOffset + uint64_t{i} * from.slotBytes;
    std::byte* dst = toBase + to.slotsOffset + uint64_t{i} * to.slotBytes;
    const uint32_t length = std::min(*slotStateWord(src) & kSlotLengthMask, from.recordBytes);
    std::memcpy(dst, src, g.recordOffset + std::min(length, g.inlineBytes));
    if (length <= g.inlineBytes) continue;
    std::memcpy(toBase + to.overflowOffset + uint64_t{i} * to.overflowBytes,
                fromBase + from.overflowOffset + uint64_t{i} * from.overflowBytes,
                length - g.inlineBytes);
  }
}

// Slot numbers, sequence counters and the change log survive the copy, so
// readers' cursors and their slot-to-key views stay valid in the new
// generation.
void copyCollection(const std::byte* fromBase, const CollectionHeader& from, std::byte* toBase,
                    CollectionHeader& to) {
  uint32_t highWater = std::min(from.highWater, from.capacity);
  KIV_ASSERT(highWater <= to.capacity);
  if (from.kind == RecordKind::serialized) {
    copySerializedSlots(fromBase, from, toBase, to, highWater);
  } else {
    std::memcpy(toBase + to.slotsOffset, fromBase + from.slotsOffset,
                uint64_t{highWater} * from.slotBytes);
  }
  to.highWater = highWater;
  if (from.ringSize == to.ringSize) {
    std::memcpy(toBase + to.ringOffset, fromBase + from.ringOffset,
                uint64_t{from.ringSize} * sizeof(uint32_t));
    to.writeCount = from.writeCount;
  } else {
    // Positions in a ring of another size mean nothing: put the count a whole
    // ring ahead, so that every reader rescans.
    to.writeCount = from.writeCount + to.ringSize;
  }
}

bool isSuperseded(const Segment& segment) {
  return loadAcquire(&segmentHeader(segment.data())->superseded) != 0;
}

bool isReadable(const Segment& segment, std::string_view path) {
  return segmentProblem(segment.data(), segment.size(), path).empty();
}

}  // namespace

Kiv::Ptr<Mount> Mount::writerMount(std::string_view prefix, std::string_view path,
                                   const std::vector<CollectionDecl>& collections) {
  checkDeclarations(path, collections);
  Kiv::Ptr<Mount> mount(new Mount(prefix, path, mountTypeWriter));
  try {
    mount->attachWriter(collections);
  } catch (const SegmentError& e) {
    throw MountError(e.what());
  }
  return mount;
}

Kiv::Ptr<Mount> Mount::readerMount(std::string_view prefix, std::string_view path, MountType type) {
  if (type != mountTypeReader && type != mountTypeSharedReader) {
    throw MountError(fmt::format("vosh: {}: {} is not a reading mount type", path, int{type}));
  }
  Kiv::Ptr<Mount> mount(new Mount(prefix, path, type));
  try {
    mount->attachReader();
  } catch (const SegmentError& e) {
    throw MountError(e.what());
  }
  return mount;
}

Mount::Mount(std::string_view prefix, std::string_view path, MountType type)
    : path_(path), baseName_(segmentBaseName(prefix, path)), type_(type) {
  if (path.empty() || path.size() >= kPathBytes || path.find('\0') != std::string_view::npos) {
    throw MountError(fmt::format("vosh: bad path '{}'", path));
  }
  // Room for the longest generation suffix within the system's name limit.
  if (baseName_.size() + std::strlen(".g4294967295") > NAME_MAX) {
    throw MountError(fmt::format("vosh: path '{}' too long for a segment name", path));
  }
}

Mount::~Mount() = default;

uint32_t Mount::generation() const { return segmentHeader(base())->generation; }

std::string Mount::segmentName() const { return segment_ ? segment_->name() : std::string(); }

CollectionHeader* Mount::collection(std::string_view name) const {
  return const_cast<CollectionHeader*>(findCollection(base(), name));
}

void Mount::attachWriter(const std::vector<CollectionDecl>& collections) {
  for (const CollectionDecl& d : collections)
    channels_.push_back(ChangeChannel::of(baseName_, d.name));
  std::vector<uint32_t> present = segmentGenerationsPresent(baseName_);
  std::unique_ptr<Segment> current;
  for (auto g = present.rbegin(); g != present.rend() && !current; ++g) {
    auto segment = Segment::open(segmentGenerationName(baseName_, *g), true);
    if (segment && isReadable(*segment, path_) && !isSuperseded(*segment))
      current = std::move(segment);
  }
  if (!current) {
    for (uint32_t g : present) Segment::unlink(segmentGenerationName(baseName_, g));
    uint32_t generation = present.empty() ? 0 : present.back() + 1;
    segment_ = makeGeneration(generation, wantedSpecs(collections, {}));
    return;
  }
  if (!current->tryLockExclusive()) {
    throw MountError(
        fmt::format("vosh: cannot mount {} for writing: another writer has it mounted", path_));
  }
  segment_ = std::move(current);
  retireOtherGenerations(present, generation());
  std::vector<CollectionSpec> wanted = wantedSpecs(collections, collectionSpecs(base()));
  if (collectionSpecs(base()) != wanted) relayout(wanted);
}

void Mount::attachReader() {
  segment_ = openNewestReadable();
  if (!segment_) {
    throw MountError(fmt::format(
        "vosh: cannot mount {} for reading: its writer has not created it (no segment {})", path_,
        baseName_));
  }
}

// Generations other than the one a new writer keeps are what a writer that
// died mid-growth left: an incomplete newer one, or an older one it had not
// yet marked. Readers still on an older one are sent on.
void Mount::retireOtherGenerations(const std::vector<uint32_t>& present, uint32_t kept) const {
  for (uint32_t g : present) {
    if (g == kept) continue;
    std::string name = segmentGenerationName(baseName_, g);
    auto segment = Segment::open(name, true);
    if (segment && isReadable(*segment, path_) && !isSuperseded(*segment)) {
      segmentHeader(segment->data())->nextGeneration = kept;
      storeRelease(&segmentHeader(segment->data())->superseded, 1u);
    }
    Segment::unlink(name);
  }
}

std::unique_ptr<Segment> Mount::openNewestReadable() const {
  // A generation superseded between listing and opening means a newer one
  // has appeared since the listing: list again.
  for (int pass = 0; pass < 4; ++pass) {
    std::vector<uint32_t> present = segmentGenerationsPresent(baseName_);
    bool stale = false;
    for (auto g = present.rbegin(); g != present.rend() && !stale; ++g) {
      auto segment = Segment::open(segmentGenerationName(baseName_, *g), false);
      if (!segment || !isReadable(*segment, path_)) continue;
      if (!isSuperseded(*segment)) return segment;
      stale = true;
    }
    if (!stale) break;
  }
  return nullptr;
}

std::unique_ptr<Segment> Mount::makeGeneration(uint32_t generation,
                                               const std::vector<CollectionSpec>& specs) const {
  auto segment =
      Segment::create(segmentGenerationName(baseName_, generation), segmentBytesFor(specs));
  // Locked before it is complete, so no other writer can take it over.
  bool locked = segment->tryLockExclusive();
  KIV_ASSERT(locked);
  segmentFormat(segment->data(), specs, path_, generation);
  if (segment_) {
    CollectionHeader* to = collectionHeaders(segment->data());
    for (const CollectionSpec& given : specs) {
      const CollectionHeader* from = findCollection(base(), given.name);
      if (from && from->kind != RecordKind::untyped && recordShape(*from) == given.shape) {
        copyCollection(base(), *from, segment->data(), *to);
      }
      ++to;
    }
  }
  segmentPublish(segment->data());
  return segment;
}

void Mount::relayout(const std::vector<CollectionSpec>& specs) {
  SegmentHeader* old = segmentHeader(base());
  uint32_t next = old->generation + 1;
  auto segment = makeGeneration(next, specs);
  old->nextGeneration = next;
  storeRelease(&old->superseded, 1u);
  Segment::unlink(segment_->name());
  segmentIs(std::move(segment));
  wakeAllReaders();
}

void Mount::remap() {
  auto next = openNewestReadable();
  if (!next || segmentHeader(next->data())->generation == generation()) return;
  segmentIs(std::move(next));
}

void Mount::segmentIs(std::unique_ptr<Segment> segment) {
  // The old mapping stays until every table has moved off it.
  std::unique_ptr<Segment> old = std::exchange(segment_, std::move(segment));
  for (size_t i = 0; i < tables_.size(); ++i) tables_[i]->handleRemap();
}

void Mount::wakeAllReaders() const {
  for (const auto& channel : channels_) channel->wakeReaders();
}

void Mount::collectionShapeIs(std::string_view name, const RecordShape& shape) {
  const CollectionHeader* c = collection(name);
  if (!c) throw MountError(fmt::format("vosh: {} has no collection {}", path_, name));
  if (recordShape(*c) == shape) return;
  if (c->kind != RecordKind::untyped) {
    fmt::print(stderr, "vosh: {} {}: record shape changed, previous contents dropped\n", path_,
               name);
  }
  std::vector<CollectionSpec> specs = collectionSpecs(base());
  for (CollectionSpec& s : specs) {
    if (s.name == name) s.shape = shape;
  }
  relayout(specs);
}

void Mount::collectionGrow(std::string_view name) {
  CollectionHeader* header = collection(name);
  KIV_ASSERT(header);
  // Whatever is left of the reservation is used before anything is copied.
  const uint64_t grown =
      std::min(uint64_t{header->capacity} * kGrowthFactor, uint64_t{header->reservedSlots});
  if (grown > header->capacity) {
    // Readers learn of it from the slots the writer uses next.
    storeRelease(&header->capacity, static_cast<uint32_t>(grown));
    return;
  }
  std::vector<CollectionSpec> specs = collectionSpecs(base());
  for (CollectionSpec& s : specs) {
    if (s.name != name) continue;
    if (s.capacity >= kMaxCapacity) {
      throw SegmentError(fmt::format("vosh: {} {}: full at {} entries", path_, name, s.capacity));
    }
    s.capacity = std::min(s.capacity * kGrowthFactor, kMaxCapacity);
  }
  relayout(specs);
}

void Mount::tableDel(TableBase* table) { std::erase(tables_, table); }

void Mount::close() {
  std::vector<TableBase*> tables = std::move(tables_);
  tables_.clear();
  for (TableBase* t : tables) t->handleUnmount();
  segment_.reset();
}

}  // namespace Vosh
