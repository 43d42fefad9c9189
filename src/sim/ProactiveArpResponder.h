#pragma once

// Answers the agent's proactive-ARP requests ("arp/proactive/config/qelMpls",
// written by the agent, read here): every next hop the agent asks to keep
// resolved is resolved against the scenario's neighbours, now if one
// answers, or as soon as one appears.

#include <cstdint>
#include <memory>

#include "kiv/Ptr.h"
#include "models/VoshTables.h"
#include "sim/ArpPublisher.h"
#include "vosh/EntityManager.h"

namespace Sim {

class ProactiveArpResponder {
 public:
  static constexpr const char* kPath = "arp/proactive/config/qelMpls";

  ProactiveArpResponder(Kiv::Ptr<Vosh::EntityManager> em, ArpPublisher& arp);
  ~ProactiveArpResponder();

  // Reads the request table once the agent has created it; false until then.
  // Requests already in it are answered.
  bool attach();
  bool attached() const { return requests_ != nullptr; }

  uint64_t requestsSeen() const { return requestsSeen_; }
  // Requests no neighbour has answered yet.
  uint64_t unresolved() const;

 private:
  class Reactors;
  void handleRequest(const Arp::Table::ArpKey& key);

  Kiv::Ptr<Vosh::EntityManager> em_;
  ArpPublisher& arp_;
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> requests_;
  uint64_t requestsSeen_ = 0;
  std::unique_ptr<Reactors> reactors_;
};

}  // namespace Sim
