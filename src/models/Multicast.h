#pragma once

// The multicast group library's state-database entities: groups a client
// asks to be programmed ("hardware/qel/mcastGroup/config/QelMpls/ClientConfig")
// and the hardware ids the multicast programming agent answers with
// ("hardware/qel/mcastGroup/status").

#include <cstdint>

#include "kiv/Entity.h"
#include "models/Fib.h"

namespace Multicast::Group {

using GroupId = uint16_t;

// One requested group: the FECs whose hardware ids form it, and a request id
// bumped with every new request.
struct GroupRequest {
  uint32_t requestId = 0;
  uint32_t fecCount = 0;
  friend bool operator==(const GroupRequest&, const GroupRequest&) = default;
};

struct GroupStatus {
  uint32_t requestId = 0;
  bool programmed = false;
  uint32_t hwId = 0;
  friend bool operator==(const GroupStatus&, const GroupStatus&) = default;
};

class Config : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Multicast::Group::Config";
  KIV_ORDERED_COLL(GroupId, GroupRequest, group, Group)
};

class Status : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static constexpr const char* kTypeName = "Multicast::Group::Status";
  KIV_ORDERED_COLL(GroupId, GroupStatus, group, Group)
};

}  // namespace Multicast::Group
