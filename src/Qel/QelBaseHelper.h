#pragma once

// Platform hook objects. The library programs hardware through tables, but a
// platform may want to be told of a route directly; it subclasses these
// helpers. Every default operation refuses to run, so that a platform that
// forgets an override is stopped on the first call, unless the agent runs in
// no-operation mode (environment variable "QEL_NOOP_AGENT" set to anything),
// where each returns its no-operation result.

#include <cstdint>
#include <string>
#include <string_view>

#include "bexo/AddressingMethod.h"
#include "bexo/MplsLabel.h"
#include "bexo/MplsLabelAction.h"
#include "kiv/Entity.h"
#include "models/MplsLfib.h"
#include "models/MplsRouteKey.h"

namespace Qel {

// True when "QEL_NOOP_AGENT" is present in the environment.
bool noopAgent();

class QelBaseHelper : public Kiv::Entity {
 public:
  explicit QelBaseHelper(std::string name) : Kiv::Entity(std::move(name)) {}
  // Writes the message to stderr and stops the agent.
  [[noreturn]] void qelAssert(std::string_view message) const;
};

}  // namespace Qel

namespace QelHelper {

enum RouteUpdateStatus : uint32_t {
  routeUpdateSuccess = 0,
  routeUpdateFailResourceFull = 1,
  routeUpdateFailInvalidFec = 2,
};

class MplsSmHelper : public Qel::QelBaseHelper {
 public:
  explicit MplsSmHelper(std::string name) : Qel::QelBaseHelper(std::move(name)) {}
  virtual std::string name() const { return Kiv::Entity::name(); }
  virtual RouteUpdateStatus updateRoute(const Mpls::RouteKey& routeKey,
                                        Bexo::MplsLabelAction labelAction,
                                        Mpls::PayloadType payloadType, uint64_t& value,
                                        Bexo::AddressingMethod addressingMethod);
  virtual void deleteRoute(const Mpls::RouteKey& routeKey);
  // Whether the hardware keeps forwarding while the agent restarts, so that
  // a start recovers instead of clearing the hardware tables.
  virtual bool mplsNonStopForwardingSupported() const { return false; }
};

class MplsForwardingHelper : public Qel::QelBaseHelper {
 public:
  explicit MplsForwardingHelper(std::string name) : Qel::QelBaseHelper(std::move(name)) {}
  virtual std::string name() const { return Kiv::Entity::name(); }
  virtual uint32_t createOrUpdateMplsRoute(Bexo::MplsLabel label, uint64_t& value);
  virtual void deleteMplsRoute(Bexo::MplsLabel label);
};

}  // namespace QelHelper
