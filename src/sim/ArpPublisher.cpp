#include "sim/ArpPublisher.h"

namespace Sim {

ArpPublisher::ArpPublisher(Vosh::EntityManager& em) {
  em.mountWriter(kPath, Arp::Table::Status::collections());
  table_ = Kiv::make<Arp::Table::Status>(em, kPath);
  table_->arpEntryDelAll();
}

void ArpPublisher::neighbourIs(const ArpSpec& given) {
  neighbours_[given.key] = given.mac;
  if (resolving_.contains(given.key)) publish(given.key);
}

void ArpPublisher::neighbourDel(const Arp::Table::ArpKey& key) {
  neighbours_.erase(key);
  table_->arpEntryDel(key);
}

bool ArpPublisher::resolve(const Arp::Table::ArpKey& key) {
  resolving_.insert(key);
  if (!neighbours_.contains(key)) return false;
  publish(key);
  return true;
}

void ArpPublisher::publish(const Arp::Table::ArpKey& key) {
  auto it = neighbours_.find(key);
  if (it != neighbours_.end()) table_->arpEntryIs(Arp::Table::ArpEntry{key, it->second});
}

}  // namespace Sim
