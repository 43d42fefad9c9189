#pragma once

// The simulated hardware driver. It sees the agent only through the shared-
// memory hardware tables: it reads the route and layer-2 adjacency records
// the agent writes ("hardware/qel/mplsHwRouteConfig") and answers each in
// the status table it owns ("hardware/qel/mplsHwRouteStatus") with the
// version it acted on, like a platform driver in its own process would; it
// can run in one (see `qelmpls driver`).
//
// What it holds in "hardware" is the set of routes and layer-2 adjacencies it
// answered programmed, within the configured capacities. A route beyond the
// route capacity is answered unprogrammed, route full, with the resource
// flag; a route whose top label is configured to fail, unprogrammed with an
// invalid FEC; a route pointing at a layer-2 adjacency the hardware refused,
// adjacency full. A record that goes away takes its status away. The route
// sync map is the set of programmed routes, which a restarting agent reads.
//
// Answers are written answerDelay seconds after the change was seen, in the
// order the changes were seen, by one task; a key changed again before its
// answer is answered once, from its latest record. A layer-2 adjacency is
// answered before any route that points at it.
//
// A route record may point at a hardware FEC id instead of a layer-2
// adjacency (the mediated mode); it is programmed when the FEC allocator has
// granted that id, and answered invalid FEC otherwise.
//
// The status table survives the driver: a driver that attaches to a status
// table left by a previous run takes its programmed records as what the
// hardware holds. What the hardware did to programmed routes is counted:
// records removed (hwRouteDeletes) and records rewritten to point elsewhere
// (hwRouteRepoints), which is how a restart that nobody noticed is told
// from one that touched forwarding.

#include <cstdint>
#include <deque>
#include <memory>

#include "QelMpls/platform/QelMplsVoshTables.h"
#include "kiv/DirectMap.h"
#include "kiv/HashMap.h"
#include "kiv/Ptr.h"
#include "plin/TaskScheduler.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class FecAllocator;

class HwDriver {
 public:
  static constexpr const char* kRouteConfigPath = "hardware/qel/mplsHwRouteConfig";
  static constexpr const char* kRouteStatusPath = "hardware/qel/mplsHwRouteStatus";
  // As urgent as the tables' own delivery: a driver has a processor of its own and
  // does not wait for the agent's work to run out.
  static constexpr Plin::TaskPriority kTaskPriority = 1;

  struct Counters {
    uint64_t routeAnswers = 0;
    uint64_t routesRefused = 0;
    uint64_t l2Answers = 0;
    uint64_t l2Refused = 0;
    uint64_t statusDeleted = 0;
    uint64_t hwRouteDeletes = 0;
    uint64_t hwRouteRepoints = 0;
    uint64_t hwL2Deletes = 0;
  };

  // Mounts the status table as its writer.
  HwDriver(Kiv::Ptr<Vosh::EntityManager> em, const DriverConfig& config);
  ~HwDriver();
  HwDriver(const HwDriver&) = delete;
  HwDriver& operator=(const HwDriver&) = delete;

  // Reads the configuration table once the agent has created it; false
  // while it does not exist. Everything already in it is answered.
  bool attach();
  bool attached() const { return config_ != nullptr; }

  const DriverConfig& driverConfig() const { return driverConfig_; }
  // Applies to answers written from now on.
  void driverConfigIs(const DriverConfig& config) { driverConfig_ = config; }
  // The allocator whose grants make hardware FEC ids valid.
  void fecAllocatorIs(const FecAllocator* allocator) { fecAllocator_ = allocator; }

  uint64_t hwRoutes() const { return hwRoutes_.size(); }
  uint64_t hwL2Adjacencies() const { return hwL2Adjacencies_.size(); }
  bool pending() const { return !queue_.empty(); }
  const Counters& counters() const { return counters_; }
  const Vosh::Qel::MplsHwCollectionStatus& status() const { return *status_; }

 private:
  enum class Kind : uint8_t { route, l2Adjacency };
  // What a programmed route forwards to, the record's adjacency id type in
  // the top bits and its id below; 0 (unknown) for routes recovered from a
  // status table whose records were not read yet.
  using Target = uint64_t;
  static Target targetOf(const Vosh::Qel::MplsHwRouteConfig& config);
  struct Change {
    double due;
    Kind kind;
    uint64_t key;
  };
  class Reactors;

  void recoverHardware();
  void queueRoute(const Mpls::RouteKey& key);
  void queueL2Adjacency(Vosh::Qel::MplsHwL2AdjacencyId id);
  void queue(Kind kind, uint64_t key);
  void runAnswerTask();
  void answerRoute(const Mpls::RouteKey& key);
  void answerL2Adjacency(Vosh::Qel::MplsHwL2AdjacencyId id);
  Vosh::Qel::MplsHwRouteStatus routeVerdict(const Vosh::Qel::MplsHwRouteConfig& config);
  void routeStatusIs(const Vosh::Qel::MplsHwRouteStatus& status, const Target& target);
  void learnRecoveredTargets();

  Kiv::Ptr<Vosh::EntityManager> em_;
  DriverConfig driverConfig_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionStatus> status_;
  Kiv::Ptr<Vosh::Qel::MplsHwCollectionConfig> config_;
  std::deque<Change> queue_;
  Kiv::DenseSet<Mpls::RouteKey> pendingRoutes_;
  Kiv::HashSet<Vosh::Qel::MplsHwL2AdjacencyId> pendingL2_;
  Kiv::DirectMap<Mpls::RouteKey, Target> hwRoutes_;
  Kiv::HashSet<Vosh::Qel::MplsHwL2AdjacencyId> hwL2Adjacencies_;
  const FecAllocator* fecAllocator_ = nullptr;
  Counters counters_;
  Plin::Task answerTask_;
  std::unique_ptr<Reactors> reactors_;
};

}  // namespace Sim
