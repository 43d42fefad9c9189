#pragma once
// In-process wake-ups from a collection's writer to its readers.
//
// Readers in other processes find changes by polling the change ring; a
// reader in the writer's own process need not wait for a poll: every write
// schedules the poll task of each such reader (never runs it), so in virtual
// time runUntilIdle() delivers. Channels are process-wide, keyed by segment
// and collection, so a writer and a reader under different entity managers
// still find each other.

#include <string>
#include <string_view>
#include <vector>

#include "kiv/Ptr.h"

namespace Vosh {

class TableBase;

class ChangeChannel : public Kiv::RefCounted {
 public:
  static Kiv::Ptr<ChangeChannel> of(std::string_view segmentBaseName, std::string_view collection);

  void readerIs(TableBase* reader);
  void readerDel(TableBase* reader);
  bool hasReaders() const noexcept { return !readers_.empty(); }
  void wakeReaders() const;

 private:
  explicit ChangeChannel(std::string key);
  ~ChangeChannel() override;

  std::string key_;
  std::vector<TableBase*> readers_;
};

}  // namespace Vosh
