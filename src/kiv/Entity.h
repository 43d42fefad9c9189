#pragma once
// Entities, their attributes and keyed collections, and reactors.
//
// An entity is a reference-counted object whose attributes and collections
// tell their watchers after every change: `onX()` for an attribute, `onX(key)`
// for one entry of a collection. The KIV_* macros below declare one attribute
// or collection with the accessors every state machine expects:
//
//   x()            read (a collection: x(key) returns a copy or the empty value)
//   xIs(...)       set; notifies only when the value really changed
//   xDel(key)      remove one entry           xDelAll()  remove all
//   xHas(key)      membership                 xs()       number of entries
//   xInc(step)     counters
//
// A reactor is an object bound to one input entity; it holds the connections
// it made and drops them when it is destroyed, so a reactor never outlives
// what it watches and never fires after its owner let go of the input.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kiv/DenseSet.h"
#include "kiv/DirectMap.h"
#include "kiv/FlatMap.h"
#include "kiv/HashMap.h"
#include "kiv/NumberedSet.h"
#include "kiv/OrderedMap.h"
#include "kiv/Ptr.h"
#include "kiv/Signal.h"

namespace Kiv {

class Entity : public RefCounted {
 public:
   explicit Entity(std::string name = {}) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }

 private:
   std::string name_;
};

class Reactor {
 public:
   Reactor() = default;
   Reactor(const Reactor&) = delete;
   Reactor& operator=(const Reactor&) = delete;
   virtual ~Reactor() = default;

 protected:
   template <class Sig, class Fn>
   void on(Sig& signal, Fn&& fn) {
      connections_.push_back(signal.connect(std::forward<Fn>(fn)));
   }

 private:
   std::vector<Connection> connections_;
};

}  // namespace Kiv

// A notifying attribute: KIV_ATTR(bool, mplsRouting, MplsRouting, false) gives
// mplsRouting(), mplsRoutingIs(v) and the signal onMplsRouting.
#define KIV_ATTR(Type, name, Name, init)              \
 public:                                              \
   const Type& name() const noexcept { return name##_; } \
   void name##Is(const Type& v) {                     \
      if (name##_ == v) return;                       \
      name##_ = v;                                    \
      on##Name();                                     \
   }                                                  \
   mutable ::Kiv::Signal<> on##Name;                        \
                                                      \
 private:                                             \
   Type name##_ = init;                               \
                                                      \
 public:

// A plain attribute with no watchers (working state of a state machine).
#define KIV_VALUE(Type, name, init)                          \
 public:                                                     \
   const Type& name() const noexcept { return name##_; }     \
   void name##Is(const Type& v) { name##_ = v; }             \
                                                             \
 private:                                                    \
   Type name##_ = init;                                      \
                                                             \
 public:

// An unsigned 64-bit counter with xIs and xInc.
#define KIV_COUNTER(name)                                          \
 public:                                                           \
   uint64_t name() const noexcept { return name##_; }              \
   void name##Is(uint64_t v) noexcept { name##_ = v; }             \
   void name##Inc(uint64_t step = 1) noexcept { name##_ += step; } \
                                                                   \
 private:                                                          \
   uint64_t name##_ = 0;                                           \
                                                                   \
 public:

#define KIV_COLL_IMPL(Container, K, V, name, Name)                         \
 public:                                                                   \
   V name(const K& k) const {                                              \
      const V* v = name##_.find(k);                                        \
      return v ? *v : V{};                                                 \
   }                                                                       \
   const V* name##Find(const K& k) const { return name##_.find(k); }       \
   bool name##Has(const K& k) const { return name##_.contains(k); }        \
   void name##Is(const K& k, V v) {                                        \
      if (V* slot = name##_.find(k)) {                                     \
         if (*slot == v) return;                                           \
         *slot = std::move(v);                                             \
      } else {                                                             \
         name##_.insert(k, std::move(v));                                  \
      }                                                                    \
      on##Name(k);                                                         \
   }                                                                       \
   void name##Del(const K& k) {                                            \
      if (name##_.erase(k)) on##Name(k);                                   \
   }                                                                       \
   void name##DelAll() {                                                   \
      if (!on##Name.connected()) {                                         \
         name##_.clear();                                                  \
         return;                                                           \
      }                                                                    \
      std::vector<K> keys;                                                 \
      keys.reserve(name##_.size());                                        \
      for (const auto& e : name##_) keys.push_back(e.first);               \
      name##_.clear();                                                     \
      for (const K& k : keys) on##Name(k);                                 \
   }                                                                       \
   size_t name##s() const noexcept { return name##_.size(); }              \
   const Container& name##Coll() const noexcept { return name##_; }        \
   mutable ::Kiv::Signal<K> on##Name;                                            \
                                                                           \
 private:                                                                  \
   Container name##_;                                                      \
                                                                           \
 public:

// Keyed value collections: KIV_COLL(Key, Value, route, Route).
#define KIV_COLL(K, V, name, Name) KIV_COLL_IMPL(::Kiv::HashMap<K KIV_COMMA V>, K, V, name, Name)
#define KIV_ORDERED_COLL(K, V, name, Name) \
   KIV_COLL_IMPL(::Kiv::OrderedMap<K KIV_COMMA V>, K, V, name, Name)
// A handful of entries in key order (an adjacency's vias), in one array.
#define KIV_FLAT_COLL(K, V, name, Name) KIV_COLL_IMPL(::Kiv::FlatMap<K KIV_COMMA V>, K, V, name, Name)
#define KIV_COMMA ,
// A collection that may come to hold most of a densely numbered key space
// (every route); it iterates by key number.
#define KIV_DENSE_COLL(K, V, name, Name) \
   KIV_COLL_IMPL(::Kiv::DirectMap<K KIV_COMMA V>, K, V, name, Name)
// A collection keyed by indexes a counter hands out; it iterates in index
// order.
#define KIV_INDEX_COLL(K, V, name, Name) \
   KIV_COLL_IMPL(::Kiv::DirectMap<K KIV_COMMA V KIV_COMMA ::Kiv::CountedIndex<K>>, K, V, name, Name)

#define KIV_SET_IMPL(Container, K, name)                                      \
 public:                                                                      \
   bool name##Has(const K& k) const { return name##_.contains(k); }           \
   void name##Is(const K& k) { name##_.insert(k); }                           \
   void name##Del(const K& k) { name##_.erase(k); }                           \
   void name##DelAll() { name##_.clear(); }                                   \
   size_t name##s() const noexcept { return name##_.size(); }                 \
   const Container& name##Coll() const noexcept { return name##_; }           \
   Container& name##Coll() noexcept { return name##_; }                       \
                                                                              \
 private:                                                                     \
   Container name##_;                                                         \
                                                                              \
 public:

// Membership sets (no watchers: review sets and reference sets).
#define KIV_SET(K, name) KIV_SET_IMPL(::Kiv::HashSet<K>, K, name)
// A set that may come to hold most of a densely numbered key space (every
// route under review at once).
#define KIV_DENSE_SET(K, name) KIV_SET_IMPL(::Kiv::DenseSet<K>, K, name)
#define KIV_ORDERED_SET(K, name) KIV_SET_IMPL(::Kiv::OrderedSet<K>, K, name)
// A handful of keys in order (an adjacency's next hops), in one array.
#define KIV_FLAT_SET(K, name) KIV_SET_IMPL(::Kiv::FlatSet<K>, K, name)
// A set of indexes a counter hands out, in index order, that may come to hold
// most of them (every adjacency under review at once).
#define KIV_INDEX_SET(K, name) KIV_SET_IMPL(::Kiv::NumberedSet<K KIV_COMMA ::Kiv::CountedIndex<K>>, K, name)
