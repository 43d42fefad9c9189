#include "pellet/Facility.h"

#include <vector>

#include "pellet/Registry.h"

namespace Pellet {

Facility::Facility(Handle& handle, std::string_view name) {
  attach(Registry::instance().facilityState(handle, name));
}

Facility::Facility(const Facility& other) { attach(*other.state_); }

Facility& Facility::operator=(const Facility& other) {
  if (state_ != other.state_) {
    detach();
    attach(*other.state_);
  }
  return *this;
}

Facility::~Facility() { detach(); }

const std::string& Facility::name() const { return state_->name; }

Handle& Facility::handle() const { return *state_->handle; }

void Facility::write(int level, std::string_view message) const {
  Registry::instance().write(*state_, level, message);
}

void Facility::attach(FacilityState& state) {
  state_ = &state;
  state.instances.push_back(this);
  enabled_ = state.enabled();
}

void Facility::detach() { std::erase(state_->instances, this); }

}  // namespace Pellet
