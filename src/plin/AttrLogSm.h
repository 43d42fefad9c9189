#pragma once
// The agent's attribute-change log writer, as seen by the state machines that
// feed it: whether its output is clogged. Long-running tasks check it between
// items and yield while it is, so that a slow state-database consumer
// throttles its producers instead of letting the log grow without bound.
// Whoever owns the log's output (the agent, the simulator, a test) sets it.

#include <string>

#include "kiv/Entity.h"

namespace Plin {

class AttrLogSm : public Kiv::Entity {
 public:
   explicit AttrLogSm(std::string name = "attrLogSm");

   bool isAttrLogOutClogged() const noexcept { return attrLogOutClogged_; }
   // Notifies only when the state changes.
   void attrLogOutCloggedIs(bool clogged);

   Kiv::Signal<> onAttrLogOutClogged;

 private:
   bool attrLogOutClogged_ = false;
};

}  // namespace Plin
