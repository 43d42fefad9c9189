#pragma once
// The format of one mounted path's shared-memory segment. Every process that
// maps the segment reads it through these definitions, so field order and
// widths are a contract: change them only together with kLayoutVersion.
//
//   SegmentHeader                      magic, version, generation, superseded
//   CollectionHeader[collectionCount]  the directory, one entry per collection
//   per typed collection:
//     slots[reservedSlots]             each: seq u32, state u32, key, record
//                                      (its first inlineBytes)
//     overflow[reservedSlots]          the rest of each slot's record, if any
//     ring[ringSize]                   u32 slot numbers, the change log
//
// A serialized record is mostly far shorter than the largest its type allows
// (a layer-2 adjacency of two vias is 104 of 5648 bytes). Its slot holds the
// first kInlineRecordBytes and its overflow cell the rest, so slots stay
// small and many share a page: writing a record touches one page, not a
// page of its own, and a reader's walk stays within a few.
//
// A collection's slot area is reserved beyond its capacity, so that it grows
// in place, without a new generation, until the reservation is used up: the
// segment is sparse, and slots never written cost address space, not memory.
//
// A collection declared by the writer's mount but not yet given its record
// shape (no typed table asked for it) is `untyped`: it has a directory entry
// and no slots. The magic is stored last, with release ordering, so a segment
// whose magic is right is complete.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vosh {

inline constexpr uint64_t kSegmentMagic = 0x314c4254534f4856ULL;
inline constexpr uint32_t kLayoutVersion = 3;
inline constexpr size_t kPathBytes = 256;
inline constexpr size_t kCollectionNameBytes = 64;
inline constexpr uint32_t kDefaultChangeRingSize = 65536;
// Slot numbers are 32-bit and the top bit of a slot's state is its used flag.
inline constexpr uint32_t kMaxCapacity = 1u << 30;
// Slots a collection reserves unless its declaration says otherwise: a
// million routes grow in place.
inline constexpr uint32_t kDefaultReservedCapacity = 1u << 20;
// No collection's reservation goes past this many bytes of slots.
inline constexpr uint64_t kMaxReservedSlotBytes = uint64_t{1} << 30;
// The record bytes a serialized collection's slot holds itself: a layer-2
// adjacency of up to five vias, a via set of up to 27.
inline constexpr uint32_t kInlineRecordBytes = 240;

enum class RecordKind : uint32_t { untyped = 0, fixed = 1, serialized = 2 };

struct SegmentHeader {
  uint64_t magic;
  uint32_t layoutVersion;
  uint32_t generation;
  // Set once a newer generation holds the contents; readers then remap.
  uint32_t superseded;
  uint32_t nextGeneration;
  uint64_t segmentBytes;
  uint32_t collectionCount;
  uint32_t reserved;
  char path[kPathBytes];
};

struct CollectionHeader {
  char name[kCollectionNameBytes];
  RecordKind kind;
  uint32_t keyBytes;
  // Fixed records: their size. Serialized records: the largest encoding.
  uint32_t recordBytes;
  // Of a record, the bytes its slot holds; the rest is in its overflow cell.
  uint32_t inlineBytes;
  uint32_t overflowBytes;
  uint32_t slotBytes;
  // Slots in use may go up to here; the writer raises it in place, up to
  // reservedSlots.
  uint32_t capacity;
  // Slots at and above this number have never been used since the last
  // delete-all; scans stop here.
  uint32_t highWater;
  uint32_t ringSize;
  // Slots the area has room for (untyped: the room asked for).
  uint32_t reservedSlots;
  uint64_t slotsOffset;
  uint64_t overflowOffset;
  uint64_t ringOffset;
  // Changes ever logged; the ring holds the last ringSize of them.
  uint64_t writeCount;
};

static_assert(sizeof(SegmentHeader) == 296);
static_assert(sizeof(CollectionHeader) == 136);

// What a table's types say its records look like.
struct RecordShape {
  RecordKind kind = RecordKind::untyped;
  uint32_t keyBytes = 0;
  uint32_t recordBytes = 0;
  friend bool operator==(const RecordShape&, const RecordShape&) = default;
};

// What one collection is to look like in a generation being made.
struct CollectionSpec {
  std::string name;
  RecordShape shape;
  uint32_t capacity = 0;
  uint32_t ringSize = 0;
  // Slots wanted ahead of the capacity; the layout gives fewer when that
  // would pass kMaxReservedSlotBytes, never fewer than the capacity.
  uint32_t reservedSlots = 0;
  friend bool operator==(const CollectionSpec&, const CollectionSpec&) = default;
};

inline constexpr uint32_t kSlotHeaderBytes = 8;
uint32_t slotRecordOffset(uint32_t keyBytes);
uint32_t inlineBytesFor(const RecordShape& shape);
uint32_t overflowBytesFor(const RecordShape& shape);
uint32_t slotBytesFor(const RecordShape& shape);
// The slots a collection laid out as described has room for.
uint32_t reservedSlotsFor(const CollectionSpec& wanted);

uint64_t segmentBytesFor(const std::vector<CollectionSpec>& specs);
// Writes the header and directory of a fresh, zeroed segment; leaves the
// magic unset.
void segmentFormat(std::byte* base, const std::vector<CollectionSpec>& specs, std::string_view path,
                   uint32_t generation);
// Marks the segment complete.
void segmentPublish(std::byte* base);
// Why a mapped segment cannot be trusted, or empty when it can: every offset
// a reader will follow is checked here once, so a damaged or foreign segment
// is refused rather than followed out of bounds.
std::string segmentProblem(const std::byte* base, uint64_t mappedBytes, std::string_view path);

SegmentHeader* segmentHeader(std::byte* base);
const SegmentHeader* segmentHeader(const std::byte* base);
CollectionHeader* collectionHeaders(std::byte* base);
const CollectionHeader* collectionHeaders(const std::byte* base);
std::string_view collectionName(const CollectionHeader& header);
RecordShape recordShape(const CollectionHeader& header);
std::vector<CollectionSpec> collectionSpecs(const std::byte* base);

}  // namespace Vosh
