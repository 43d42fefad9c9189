#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pellet/Level.h"
#include "pellet/Ring.h"

namespace Pellet {

class Registry;

// One retained trace message, as read back from a ring.
struct Record {
  uint64_t sequence;
  double time;
  int level;
  std::string_view facility;
  std::string message;
};

// A named set of per-level rings. Handles are process-wide and live until the process ends;
// obtain them with Pellet::handle() or Pellet::initializeHandle().
class Handle {
 public:
  Handle(std::string name, const LevelSizes& kibPerLevel);
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const std::string& name() const { return name_; }
  const LevelSizes& kibPerLevel() const { return kibPerLevel_; }
  std::size_t capacityBytes(int level) const { return rings_[level].capacity(); }
  std::size_t retainedBytes(int level) const { return rings_[level].usedBytes(); }

  // The retained records of one level, oldest first.
  std::vector<Record> records(int level) const;
  // The retained records of every level, in sequence order.
  std::vector<Record> records() const;

  // Resizes the rings whose size changes; their records are discarded, the others kept.
  void kibPerLevelIs(const LevelSizes& kibPerLevel);

 private:
  friend class Registry;

  void append(int level, uint64_t sequence, double time, uint32_t facilityId,
              std::string_view message);

  std::string name_;
  LevelSizes kibPerLevel_;
  std::array<Ring, levelCount> rings_;
};

}  // namespace Pellet
