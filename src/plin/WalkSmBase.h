#pragma once
// Walk state machines: work through a backlog of keys in slices.
//
// WalkSmBase owns the walk's task and its life cycle. A walk starts when the
// task first runs with no walk under way and finishes after the slice that
// leaves no work; each slice is one call of walk(), which does what it can
// before walkShouldYield() says stop and tells whether work remains.
// walkStartedNotification()/onWalkStarted and walkFinishedNotification()/
// onWalkFinished fire once per walk, however many slices it takes and however
// many keys arrive while it runs.
//
// WalkSm<Key> adds the usual backlog: an ordered set of keys and a bookmark,
// the last key handled. A slice resumes after the bookmark and runs to the end
// of the set, then the next slice wraps round to the front. Keys added behind
// the bookmark therefore wait for the wrap instead of jumping the queue, so a
// key that keeps coming back cannot starve the keys after it. A key is taken
// out of the backlog before walkItem() sees it; walkItem() may add it again,
// or add and remove any other key.

#include <optional>
#include <string>

#include "kiv/Entity.h"
#include "kiv/OrderedMap.h"
#include "plin/TaskScheduler.h"

namespace Plin {

class WalkSmBase : public Kiv::Entity {
 public:
   WalkSmBase(TaskScheduler* scheduler, TaskPriority priority, std::string name);

   // Runs a slice soon, unless one is already due.
   void walkSchedule();
   // From the first slice of a walk to the end of its last.
   bool walking() const noexcept { return walking_; }
   Task& walkTask() noexcept { return walkTask_; }

   Kiv::Signal<> onWalkStarted;
   Kiv::Signal<> onWalkFinished;

 protected:
   // One slice of the walk; true when work remains.
   virtual bool walk() = 0;
   // Asked between two items; a state machine with more reasons to stop adds them.
   virtual bool walkShouldYield() { return walkTask_.taskShouldYield(); }
   virtual void walkStartedNotification() {}
   virtual void walkFinishedNotification() {}
   virtual void traceEvent(const std::string& event);

 private:
   void runWalkTask();

   bool walking_ = false;
   Task walkTask_;
};

template <class Key>
class WalkSm : public WalkSmBase {
 public:
   using WalkSmBase::WalkSmBase;

   // Queues a key and makes sure a slice will run.
   void walkKeyIs(const Key& key) {
      backlog_.insert(key);
      walkSchedule();
   }
   void walkKeyDel(const Key& key) { backlog_.erase(key); }
   bool walkKeyHas(const Key& key) const { return backlog_.contains(key); }
   size_t walkKeys() const noexcept { return backlog_.size(); }
   // The last key handled by the walk under way.
   const std::optional<Key>& walkBookmark() const noexcept { return bookmark_; }

 protected:
   virtual void walkItem(const Key& key) = 0;

   bool walk() override {
      auto it = resumePoint();
      while (it != backlog_.end()) {
         Key key = *it;
         backlog_.erase(key);
         bookmark_ = key;
         walkItem(key);
         if (walkShouldYield()) break;
         it = after(key);
      }
      if (backlog_.empty()) bookmark_.reset();
      return !backlog_.empty();
   }

 private:
   typename Kiv::OrderedSet<Key>::const_iterator after(const Key& key) const {
      auto it = backlog_.lowerBound(key);
      if (it != backlog_.end() && !(key < *it)) ++it;
      return it;
   }
   typename Kiv::OrderedSet<Key>::const_iterator resumePoint() {
      if (bookmark_) {
         auto it = after(*bookmark_);
         if (it != backlog_.end()) return it;
         bookmark_.reset();
      }
      return backlog_.begin();
   }

   Kiv::OrderedSet<Key> backlog_;
   std::optional<Key> bookmark_;
};

}  // namespace Plin
