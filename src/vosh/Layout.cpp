#include "vosh/Layout.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "vosh/SharedAtomic.h"

namespace Vosh {

namespace {

constexpr uint64_t kAlign = 64;

constexpr uint64_t alignUp(uint64_t n, uint64_t a) { return (n + a - 1) / a * a; }

uint64_t directoryOffset() { return alignUp(sizeof(SegmentHeader), kAlign); }

bool isPowerOfTwo(uint32_t n) { return n != 0 && (n & (n - 1)) == 0; }

bool terminated(const char* text, size_t bytes) { return std::memchr(text, 0, bytes) != nullptr; }

std::string collectionProblem(const CollectionHeader& c, uint64_t mappedBytes) {
  if (!terminated(c.name, sizeof(c.name))) return "collection name not terminated";
  switch (c.kind) {
    case RecordKind::untyped:
      return {};
    case RecordKind::fixed:
    case RecordKind::serialized:
      break;
    default:
      return fmt::format("collection {}: unknown record kind", collectionName(c));
  }
  const RecordShape shape = recordShape(c);
  if (c.slotBytes != slotBytesFor(shape) || c.inlineBytes != inlineBytesFor(shape) ||
      c.overflowBytes != overflowBytesFor(shape) || c.capacity > c.reservedSlots ||
      c.reservedSlots > kMaxCapacity || !isPowerOfTwo(c.ringSize) || c.slotsOffset % 8 != 0 ||
      c.overflowOffset % 8 != 0 || c.ringOffset % 8 != 0) {
    return fmt::format("collection {}: inconsistent geometry", collectionName(c));
  }
  if (c.slotsOffset + uint64_t{c.reservedSlots} * c.slotBytes > mappedBytes ||
      c.overflowOffset + uint64_t{c.reservedSlots} * c.overflowBytes > mappedBytes ||
      c.ringOffset + uint64_t{c.ringSize} * sizeof(uint32_t) > mappedBytes) {
    return fmt::format("collection {}: extends past the segment", collectionName(c));
  }
  return {};
}

}  // namespace

uint32_t slotRecordOffset(uint32_t keyBytes) {
  return kSlotHeaderBytes + static_cast<uint32_t>(alignUp(keyBytes, 8));
}

uint32_t inlineBytesFor(const RecordShape& shape) {
  // A fixed record is written whole every time: splitting it gains nothing.
  if (shape.kind != RecordKind::serialized) return shape.recordBytes;
  return std::min(shape.recordBytes, kInlineRecordBytes);
}

uint32_t overflowBytesFor(const RecordShape& shape) {
  return static_cast<uint32_t>(alignUp(shape.recordBytes - inlineBytesFor(shape), 8));
}

uint32_t slotBytesFor(const RecordShape& shape) {
  if (shape.kind == RecordKind::untyped) return 0;
  return slotRecordOffset(shape.keyBytes) +
         static_cast<uint32_t>(alignUp(inlineBytesFor(shape), 8));
}

namespace {

uint64_t slotAndOverflowBytes(const RecordShape& shape) {
  return uint64_t{slotBytesFor(shape)} + overflowBytesFor(shape);
}

}  // namespace

uint32_t reservedSlotsFor(const CollectionSpec& wanted) {
  const uint64_t slotBytes = slotAndOverflowBytes(wanted.shape);
  // An untyped collection has no slots yet; it keeps the request for when it
  // gets its shape.
  if (slotBytes == 0) return wanted.reservedSlots;
  const uint64_t affordable = kMaxReservedSlotBytes / slotBytes;
  const uint64_t asked = std::min<uint64_t>(wanted.reservedSlots, kMaxCapacity);
  return static_cast<uint32_t>(std::max<uint64_t>(wanted.capacity, std::min(asked, affordable)));
}

uint64_t segmentBytesFor(const std::vector<CollectionSpec>& specs) {
  uint64_t bytes = alignUp(directoryOffset() + specs.size() * sizeof(CollectionHeader), kAlign);
  for (const CollectionSpec& s : specs) {
    if (s.shape.kind == RecordKind::untyped) continue;
    bytes += alignUp(uint64_t{reservedSlotsFor(s)} * slotBytesFor(s.shape), kAlign);
    bytes += alignUp(uint64_t{reservedSlotsFor(s)} * overflowBytesFor(s.shape), kAlign);
    bytes += alignUp(uint64_t{s.ringSize} * sizeof(uint32_t), kAlign);
  }
  return bytes;
}

void segmentFormat(std::byte* base, const std::vector<CollectionSpec>& specs, std::string_view path,
                   uint32_t generation) {
  SegmentHeader* h = segmentHeader(base);
  h->layoutVersion = kLayoutVersion;
  h->generation = generation;
  h->segmentBytes = segmentBytesFor(specs);
  h->collectionCount = static_cast<uint32_t>(specs.size());
  path.copy(h->path, sizeof(h->path) - 1);
  uint64_t offset = alignUp(directoryOffset() + specs.size() * sizeof(CollectionHeader), kAlign);
  CollectionHeader* c = collectionHeaders(base);
  for (const CollectionSpec& s : specs) {
    std::string_view(s.name).copy(c->name, sizeof(c->name) - 1);
    c->kind = s.shape.kind;
    c->keyBytes = s.shape.keyBytes;
    c->recordBytes = s.shape.recordBytes;
    c->inlineBytes = inlineBytesFor(s.shape);
    c->overflowBytes = overflowBytesFor(s.shape);
    c->slotBytes = slotBytesFor(s.shape);
    c->capacity = s.capacity;
    c->ringSize = s.ringSize;
    c->reservedSlots = reservedSlotsFor(s);
    if (s.shape.kind != RecordKind::untyped) {
      c->slotsOffset = offset;
      offset += alignUp(uint64_t{c->reservedSlots} * c->slotBytes, kAlign);
      c->overflowOffset = offset;
      offset += alignUp(uint64_t{c->reservedSlots} * c->overflowBytes, kAlign);
      c->ringOffset = offset;
      offset += alignUp(uint64_t{s.ringSize} * sizeof(uint32_t), kAlign);
    }
    ++c;
  }
}

void segmentPublish(std::byte* base) { storeRelease(&segmentHeader(base)->magic, kSegmentMagic); }

std::string segmentProblem(const std::byte* base, uint64_t mappedBytes, std::string_view path) {
  if (mappedBytes < directoryOffset()) return "too small for a header";
  const SegmentHeader* h = segmentHeader(base);
  if (loadAcquire(&h->magic) != kSegmentMagic) return "incomplete or not a table segment";
  if (h->layoutVersion != kLayoutVersion) {
    return fmt::format("layout version {} (expected {})", h->layoutVersion, kLayoutVersion);
  }
  if (h->segmentBytes != mappedBytes) return "size differs from its header";
  if (!terminated(h->path, sizeof(h->path)) || std::string_view(h->path) != path) {
    return "belongs to another path";
  }
  if (directoryOffset() + uint64_t{h->collectionCount} * sizeof(CollectionHeader) > mappedBytes) {
    return "directory extends past the segment";
  }
  const CollectionHeader* c = collectionHeaders(base);
  for (uint32_t i = 0; i < h->collectionCount; ++i) {
    std::string problem = collectionProblem(c[i], mappedBytes);
    if (!problem.empty()) return problem;
  }
  return {};
}

SegmentHeader* segmentHeader(std::byte* base) { return reinterpret_cast<SegmentHeader*>(base); }

const SegmentHeader* segmentHeader(const std::byte* base) {
  return reinterpret_cast<const SegmentHeader*>(base);
}

CollectionHeader* collectionHeaders(std::byte* base) {
  return reinterpret_cast<CollectionHeader*>(base + directoryOffset());
}

const CollectionHeader* collectionHeaders(const std::byte* base) {
  return reinterpret_cast<const CollectionHeader*>(base + directoryOffset());
}

std::string_view collectionName(const CollectionHeader& header) {
  return {header.name, strnlen(header.name, sizeof(header.name))};
}

RecordShape recordShape(const CollectionHeader& header) {
  return RecordShape{header.kind, header.keyBytes, header.recordBytes};
}

std::vector<CollectionSpec> collectionSpecs(const std::byte* base) {
  const SegmentHeader* h = segmentHeader(base);
  const CollectionHeader* c = collectionHeaders(base);
  std::vector<CollectionSpec> specs;
  specs.reserve(h->collectionCount);
  for (uint32_t i = 0; i < h->collectionCount; ++i) {
    specs.push_back(CollectionSpec{std::string(collectionName(c[i])), recordShape(c[i]),
                                   c[i].capacity, c[i].ringSize, c[i].reservedSlots});
  }
  return specs;
}

}  // namespace Vosh
