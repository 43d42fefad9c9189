#pragma once

// Declares one shared-memory collection of an entity that lives in a mounted
// path: VOSH_TABLE(Mpls::RouteKey, LfibRoute, route, Route) gives
//   route(key)            the record, or the empty record when absent
//   routeHas(key)         routeIs(key, record)   routeDel(key)   routeDelAll()
//   routes()              number of records
//   forEachRoute(f)       f(key, record) for every record, in slot order
//   onRoute()             the per-key change signal (delivered from the event loop)
// The collection binds to the table named like the accessor when the entity
// is constructed over a mounted path (bindTable in the constructor).

#include <string_view>

#include "kiv/Ptr.h"
#include "vosh/EntityManager.h"

#define VOSH_TABLE(K, R, name, Name)                                              \
 public:                                                                          \
  R name(const K& k) const { return name##_->lookup(k); }                          \
  bool name##Has(const K& k) const { return name##_->has(k); }                     \
  void name##Is(const K& k, const R& r) { name##_->set(k, r); }                    \
  void name##Del(const K& k) { name##_->del(k); }                                  \
  void name##DelAll() { name##_->delAll(); }                                       \
  size_t name##s() const { return name##_->size(); }                               \
  template <class F>                                                              \
  void forEach##Name(F&& f) const {                                               \
    for (const auto& e : *name##_) f(e.key, e.record);                            \
  }                                                                               \
  ::Kiv::Signal<K>& on##Name() const { return name##_->onChange; }                 \
  const ::Vosh::Table<K, R>& name##Table() const { return *name##_; }              \
                                                                                  \
 private:                                                                         \
  ::Kiv::Ptr<::Vosh::Table<K, R>> name##_;                                         \
                                                                                  \
 public:

namespace Vosh {

template <class K, class R>
void bindTable(EntityManager& em, std::string_view path, std::string_view name,
               Kiv::Ptr<Table<K, R>>& out) {
  out = em.table<K, R>(path, name);
}

}  // namespace Vosh
