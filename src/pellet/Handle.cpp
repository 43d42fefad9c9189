#include "pellet/Handle.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "pellet/Registry.h"

namespace Pellet {

namespace {

constexpr std::size_t kib = 1024;

// What a ring entry carries ahead of the message text. Packed by hand: the ring holds bytes,
// and padding would cost 4 bytes a record.
struct RecordHead {
  static constexpr std::size_t size = sizeof(uint64_t) + sizeof(double) + sizeof(uint32_t);

  uint64_t sequence;
  double time;
  uint32_t facilityId;

  void encodeInto(char* out) const {
    std::memcpy(out, &sequence, sizeof sequence);
    std::memcpy(out + 8, &time, sizeof time);
    std::memcpy(out + 16, &facilityId, sizeof facilityId);
  }

  static RecordHead decodedFrom(const char* in) {
    RecordHead head;
    std::memcpy(&head.sequence, in, sizeof head.sequence);
    std::memcpy(&head.time, in + 8, sizeof head.time);
    std::memcpy(&head.facilityId, in + 16, sizeof head.facilityId);
    return head;
  }
};

}  // namespace

Handle::Handle(std::string name, const LevelSizes& kibPerLevel)
    : name_(std::move(name)), kibPerLevel_(kibPerLevel) {
  for (int level = 0; level < levelCount; ++level) {
    rings_[level].capacityIs(std::size_t{kibPerLevel[level]} * kib);
  }
}

std::vector<Record> Handle::records(int level) const {
  std::vector<Record> out;
  out.reserve(rings_[level].entryCount());
  const Registry& registry = Registry::instance();
  rings_[level].forEach([&](std::string_view entry) {
    const RecordHead head = RecordHead::decodedFrom(entry.data());
    out.push_back(Record{head.sequence, head.time, level, registry.facilityName(head.facilityId),
                         std::string(entry.substr(RecordHead::size))});
  });
  return out;
}

std::vector<Record> Handle::records() const {
  std::vector<Record> out;
  for (int level = 0; level < levelCount; ++level) {
    std::vector<Record> ofLevel = records(level);
    std::move(ofLevel.begin(), ofLevel.end(), std::back_inserter(out));
  }
  std::sort(out.begin(), out.end(),
            [](const Record& a, const Record& b) { return a.sequence < b.sequence; });
  return out;
}

void Handle::kibPerLevelIs(const LevelSizes& kibPerLevel) {
  for (int level = 0; level < levelCount; ++level) {
    if (kibPerLevel[level] != kibPerLevel_[level]) {
      rings_[level].capacityIs(std::size_t{kibPerLevel[level]} * kib);
    }
  }
  kibPerLevel_ = kibPerLevel;
}

void Handle::append(int level, uint64_t sequence, double time, uint32_t facilityId,
                    std::string_view message) {
  char head[RecordHead::size];
  RecordHead{sequence, time, facilityId}.encodeInto(head);
  rings_[level].push(std::string_view(head, sizeof head), message);
}

}  // namespace Pellet
