#pragma once

// Proactive ARP for next hops: a client asks for a next hop to be kept
// resolved ahead of traffic by adding it to its client table, and withdraws
// the request when it no longer needs it. The client keeps its own count of
// users per next hop; this table holds one request per next hop.

#include <cstdint>

#include "bexo/IntfId.h"
#include "bexo/IpGenAddr.h"
#include "kiv/Entity.h"
#include "models/VoshTables.h"

namespace Qel {

class ProactiveArpNexthopSm : public Kiv::Entity {
 public:
  explicit ProactiveArpNexthopSm(Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig);
  void addEntry(const Bexo::IpGenAddr& address, Bexo::IntfId intf);
  void removeEntry(const Bexo::IpGenAddr& address, Bexo::IntfId intf);
  const Kiv::Ptr<Arp::ProactiveArp::ClientConfig>& clientConfig() const { return clientConfig_; }

 private:
  Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig_;
};

Kiv::Ptr<ProactiveArpNexthopSm> ProactiveArpNexthopSmIs(
    Kiv::Ptr<Arp::ProactiveArp::ClientConfig> clientConfig);

}  // namespace Qel
