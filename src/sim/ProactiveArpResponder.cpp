#include "sim/ProactiveArpResponder.h"

#include "kiv/Entity.h"

namespace Sim {

class ProactiveArpResponder::Reactors : public Kiv::Reactor {
 public:
  Reactors(ProactiveArpResponder* responder, const Arp::ProactiveArp::ClientConfig& requests) {
    on(requests.onRequest(),
       [responder](const Arp::Table::ArpKey& k) { responder->handleRequest(k); });
  }
};

ProactiveArpResponder::ProactiveArpResponder(Kiv::Ptr<Vosh::EntityManager> em, ArpPublisher& arp)
    : em_(std::move(em)), arp_(arp) {}

ProactiveArpResponder::~ProactiveArpResponder() = default;

bool ProactiveArpResponder::attach() {
  if (attached()) return true;
  if (!em_->mounted(kPath)) {
    try {
      em_->mountReader(kPath, Vosh::mountTypeReader);
    } catch (const Vosh::MountError&) {
      return false;
    }
  }
  requests_ = Kiv::make<Arp::ProactiveArp::ClientConfig>(*em_, kPath);
  reactors_ = std::make_unique<Reactors>(this, *requests_);
  requests_->forEachRequest(
      [this](const Arp::Table::ArpKey& key, const auto&) { handleRequest(key); });
  return true;
}

void ProactiveArpResponder::handleRequest(const Arp::Table::ArpKey& key) {
  if (!requests_->requestHas(key)) return;
  ++requestsSeen_;
  arp_.resolve(key);
}

uint64_t ProactiveArpResponder::unresolved() const {
  uint64_t count = 0;
  if (!requests_) return count;
  requests_->forEachRequest([this, &count](const Arp::Table::ArpKey& key, const auto&) {
    if (!arp_.neighbourHas(key)) ++count;
  });
  return count;
}

}  // namespace Sim
