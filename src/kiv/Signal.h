#pragma once
// Synchronous, in-process change notification.
//
// A Signal keeps raw pointers to its slots; a Connection owns its slot. Either
// side may go first: a dying Signal detaches its slots, a dying Connection
// unhooks its slot. Slots disconnected while the signal is being emitted are
// only blanked and swept after the outermost emission, so a reactor may drop
// itself (or another) from inside a notification.

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

namespace Kiv {

class SignalBase;

struct SlotBase {
   SignalBase* owner = nullptr;
   virtual ~SlotBase() = default;
};

class SignalBase {
 public:
   SignalBase() = default;
   SignalBase(const SignalBase&) = delete;
   SignalBase& operator=(const SignalBase&) = delete;
   ~SignalBase() {
      for (SlotBase* s : slots_)
         if (s) s->owner = nullptr;
   }

   bool connected() const noexcept { return live_ != 0; }
   size_t connections() const noexcept { return live_; }

   void detach(SlotBase* slot) noexcept {
      auto it = std::find(slots_.begin(), slots_.end(), slot);
      if (it == slots_.end()) return;
      *it = nullptr;
      --live_;
      if (emitting_ == 0) sweep();
   }

 protected:
   void attach(SlotBase* slot) {
      slot->owner = this;
      slots_.push_back(slot);
      ++live_;
   }
   void sweep() { std::erase(slots_, nullptr); }

   std::vector<SlotBase*> slots_;
   size_t live_ = 0;
   int emitting_ = 0;
};

class Connection {
 public:
   Connection() = default;
   explicit Connection(std::unique_ptr<SlotBase> slot) : slot_(std::move(slot)) {}
   Connection(Connection&&) noexcept = default;
   Connection& operator=(Connection&& o) noexcept {
      disconnect();
      slot_ = std::move(o.slot_);
      return *this;
   }
   ~Connection() { disconnect(); }

   void disconnect() noexcept {
      if (slot_ && slot_->owner) slot_->owner->detach(slot_.get());
      slot_.reset();
   }
   bool connected() const noexcept { return slot_ && slot_->owner; }

 private:
   std::unique_ptr<SlotBase> slot_;
};

template <class... Args>
class Signal : public SignalBase {
   struct Slot : SlotBase {
      explicit Slot(std::function<void(Args...)> f) : fn(std::move(f)) {}
      std::function<void(Args...)> fn;
   };

 public:
   [[nodiscard]] Connection connect(std::function<void(Args...)> fn) {
      auto slot = std::make_unique<Slot>(std::move(fn));
      attach(slot.get());
      return Connection(std::move(slot));
   }

   void operator()(const Args&... args) {
      if (live_ == 0) return;
      // A slot may throw (an internal error stops the agent): the emission
      // still ends, so disconnected slots are still swept afterwards.
      struct Emission {
         Signal* signal;
         explicit Emission(Signal* s) : signal(s) { ++signal->emitting_; }
         ~Emission() {
            if (--signal->emitting_ == 0 && signal->live_ != signal->slots_.size()) signal->sweep();
         }
      } emission(this);
      // Index loop: slots connected during emission are appended and also run.
      for (size_t i = 0; i < slots_.size(); ++i) {
         if (auto* s = static_cast<Slot*>(slots_[i])) s->fn(args...);
      }
   }
};

}  // namespace Kiv
