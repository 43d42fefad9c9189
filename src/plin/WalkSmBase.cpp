#include "plin/WalkSmBase.h"

namespace Plin {

WalkSmBase::WalkSmBase(TaskScheduler* scheduler, TaskPriority priority, std::string name)
    : Kiv::Entity(name),
      walkTask_(scheduler, priority, std::move(name), [this] { runWalkTask(); }) {}

void WalkSmBase::walkSchedule() {
   if (!walkTask_.scheduled()) walkTask_.scheduleNow();
}

void WalkSmBase::traceEvent(const std::string&) {}

void WalkSmBase::runWalkTask() {
   if (!walking_) {
      walking_ = true;
      traceEvent("walk started");
      walkStartedNotification();
      onWalkStarted();
   }
   if (walk()) {
      traceEvent("walk continues");
      walkTask_.scheduleNow();
      return;
   }
   // A key queued and handled within the last slice asked for a slice that
   // would find nothing to do.
   walkTask_.cancel();
   walking_ = false;
   traceEvent("walk finished");
   walkFinishedNotification();
   onWalkFinished();
}

}  // namespace Plin
