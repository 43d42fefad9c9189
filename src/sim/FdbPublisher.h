#pragma once

// The bridging side's MAC table of VLAN interfaces ("bridging/status", shared
// memory, written here): per VLAN and MAC, the port it was learnt on.

#include "kiv/Ptr.h"
#include "models/VoshTables.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class FdbPublisher {
 public:
  static constexpr const char* kPath = "bridging/status";

  // Mounts the table as its writer; what a previous writer left is dropped,
  // as a bridging agent that starts again relearns its table.
  explicit FdbPublisher(Vosh::EntityManager& em);

  void hostIs(const FdbSpec& given) {
    table_->hostEntryIs(Bridging::HostEntry{given.key, given.port});
  }
  void hostDel(const Bridging::HostKey& key) { table_->hostEntryDel(key); }
  const Vosh::Bridging::Status& table() const { return *table_; }

 private:
  Kiv::Ptr<Vosh::Bridging::Status> table_;
};

}  // namespace Sim
