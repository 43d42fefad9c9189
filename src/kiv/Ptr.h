#pragma once
// Intrusive, non-atomic reference counting. The agent is single-threaded, so a
// plain counter is enough and keeps a pointer copy to one increment.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

namespace Kiv {

class RefCounted {
 public:
   RefCounted() = default;
   RefCounted(const RefCounted&) : refs_(0) {}
   RefCounted& operator=(const RefCounted&) { return *this; }

   void ref() const noexcept { ++refs_; }
   void unref() const noexcept {
      if (--refs_ == 0) delete this;
   }
   uint32_t refCount() const noexcept { return refs_; }

 protected:
   virtual ~RefCounted() = default;

 private:
   mutable uint32_t refs_ = 0;
};

template <class T>
class Ptr {
 public:
   Ptr() noexcept = default;
   Ptr(std::nullptr_t) noexcept {}
   Ptr(T* p) noexcept : p_(p) { acquire(); }
   Ptr(const Ptr& o) noexcept : p_(o.p_) { acquire(); }
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U>
   Ptr(const Ptr<U>& o) noexcept : p_(o.get()) {
      acquire();
   }
   ~Ptr() { release(); }

   Ptr& operator=(Ptr o) noexcept {
      std::swap(p_, o.p_);
      return *this;
   }

   T* get() const noexcept { return p_; }
   T* operator->() const noexcept { return p_; }
   T& operator*() const noexcept { return *p_; }
   explicit operator bool() const noexcept { return p_ != nullptr; }

   friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.p_ == b.p_; }
   friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
   void acquire() const noexcept {
      if (p_) p_->ref();
   }
   void release() noexcept {
      if (p_) p_->unref();
   }
   T* p_ = nullptr;
};

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
   return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Kiv

template <class T>
struct std::hash<Kiv::Ptr<T>> {
   size_t operator()(const Kiv::Ptr<T>& p) const noexcept { return std::hash<T*>{}(p.get()); }
};
