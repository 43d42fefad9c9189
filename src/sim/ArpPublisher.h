#pragma once

// The ARP table ("arp/status", shared memory, written here) over the
// neighbours of the scenario. A neighbour is on the wire from the moment the
// scenario names it, but it is in the ARP table only once someone asked for
// its address to be resolved (see ProactiveArpResponder); from then on the
// entry follows the neighbour: a new MAC replaces the old one, a neighbour
// that goes takes its entry along. Entries are not aged.

#include <map>

#include "kiv/HashMap.h"
#include "kiv/Ptr.h"
#include "models/VoshTables.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class ArpPublisher {
 public:
  static constexpr const char* kPath = "arp/status";

  // Mounts the table as its writer; an ARP table left by a previous writer
  // is dropped, as a restarted ARP agent starts from nothing.
  explicit ArpPublisher(Vosh::EntityManager& em);

  void neighbourIs(const ArpSpec& given);
  void neighbourDel(const Arp::Table::ArpKey& key);
  // Resolves an address from now on; false while no neighbour answers it.
  bool resolve(const Arp::Table::ArpKey& key);

  bool neighbourHas(const Arp::Table::ArpKey& key) const { return neighbours_.contains(key); }
  const Arp::Table::Status& table() const { return *table_; }

 private:
  void publish(const Arp::Table::ArpKey& key);

  Kiv::Ptr<Arp::Table::Status> table_;
  std::map<Arp::Table::ArpKey, Bexo::EthAddr> neighbours_;
  Kiv::HashSet<Arp::Table::ArpKey> resolving_;
};

}  // namespace Sim
