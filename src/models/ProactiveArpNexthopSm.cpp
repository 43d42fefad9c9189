#include "models/ProactiveArpNexthopSm.h"

namespace Qel {

ProactiveArpNexthopSm::ProactiveArpNexthopSm(Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig)
    : Kiv::Entity("proactiveArpNhSm"), clientConfig_(std::move(clientConfig)) {}

void ProactiveArpNexthopSm::addEntry(const Bexo::IpGenAddr& address, Bexo::IntfId intf) {
  Arp::Table::ArpKey key(address, intf);
  clientConfig_->requestIs(key, Arp::ProactiveArp::Request{key});
}

void ProactiveArpNexthopSm::removeEntry(const Bexo::IpGenAddr& address, Bexo::IntfId intf) {
  clientConfig_->requestDel(Arp::Table::ArpKey(address, intf));
}

Kiv::Ptr<ProactiveArpNexthopSm> ProactiveArpNexthopSmIs(
    Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig) {
  return Kiv::make<ProactiveArpNexthopSm>(std::move(clientConfig));
}

}  // namespace Qel
