#pragma once

// The simulated FEC allocator: an agent of its own that grants hardware FEC
// ids to the FECs a requester files, as the allocator of a FEC-based platform
// does. It sees the agent only through shared memory: it reads the request
// entity the agent writes ("qel/mpls/unicastFecIdHwFecIdReq") and answers in
// the response entity it owns ("qel/mpls/unicastFecIdHwFecIdResp"), each
// answer carrying the request it answers. It can run in the driver's process
// (`qelmpls driver`), apart from the agent's.
//
// A FEC id keeps its hardware id for as long as it is requested, across
// agent restarts: the grants live in the response table, which outlives the
// agent and is read back when the allocator itself starts. A request is
// answered once its description (fec or fec6) is filed; a request withdrawn
// takes its answer and its hardware id away. FECs that other owners created
// and the LFIB names in external-FEC vias are answered too, without a request.
//
// After an agent restart the requester re-files its requests under a new
// generation and declares the generation ready; once every request of that
// generation is answered the allocator records the generation as synchronised
// in its own status table ("sim/fecAllocator/status"), which the platform's
// state-database side turns into the adjacency sync status the agent waits for.
//
// answerDelay, answer and capacity come from the scenario: answers are written
// answerDelay seconds after the change was seen, not at all with answer false,
// and never for more than `capacity` FEC ids at once.

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kiv/HashMap.h"
#include "kiv/Ptr.h"
#include "models/FecRequest.h"
#include "models/MplsLfib.h"
#include "models/VoshTables.h"
#include "plin/TaskScheduler.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

// The generations whose adjacencies the allocator has synchronised.
class FecAllocatorStatus : public Kiv::Entity {
 public:
  static constexpr const char* kPath = "sim/fecAllocator/status";
  static std::vector<Vosh::CollectionDecl> collections();
  FecAllocatorStatus(Vosh::EntityManager& em, std::string_view path);
  VOSH_TABLE(Qel::GenerationId, Qel::SyncRequestsReady, adjSyncDone, AdjSyncDone)
};

class FecAllocator {
 public:
  static constexpr const char* kRequestPath = "qel/mpls/unicastFecIdHwFecIdReq";
  static constexpr const char* kResponsePath = "qel/mpls/unicastFecIdHwFecIdResp";
  static constexpr const char* kMulticastResponsePath = "qel/mpls/multicastFecIdHwFecIdResp";
  static constexpr const char* kLfibPath = "mpls/transitLfib";
  // Hardware ids are handed out from here up, lowest free first.
  static constexpr uint64_t kFirstHwFecId = 0x10000;

  struct Counters {
    // Distinct FEC ids ever requested.
    uint64_t fecRequests = 0;
    uint64_t fecAnswers = 0;
    uint64_t syncsDeclared = 0;
  };

  // Mounts the response tables and its status table as their writer, so
  // that they exist before the agent starts. It maps the tables of `prefix`
  // in an entity manager of its own, as a process of its own would, so that
  // it sees the changes of writers in the same process.
  FecAllocator(const std::string& prefix, Plin::TaskScheduler* scheduler,
               const FecAllocatorConfig& config);
  ~FecAllocator();
  FecAllocator(const FecAllocator&) = delete;
  FecAllocator& operator=(const FecAllocator&) = delete;

  // Reads the request table and the LFIB once they exist; false while they
  // do not. Everything already filed is answered.
  bool attach();
  bool attached() const { return requests_ != nullptr; }

  const FecAllocatorConfig& config() const { return config_; }
  // Applies from now on; requests left unanswered are looked at again.
  void configIs(const FecAllocatorConfig& config);

  // Whether answers it means to write are still due.
  bool pending() const { return config_.answer && !queue_.empty(); }
  bool granted(uint64_t hwFecId) const { return hwToFec_.contains(hwFecId); }
  uint64_t grants() const { return grants_.size(); }
  Counters counters() const {
    Counters out = counters_;
    out.fecRequests = asked_.size();
    return out;
  }

 private:
  struct Change {
    double due;
    Vosh::Fib::FecId fecId;
  };
  class Reactors;

  void recoverGrants();
  void handleRequest(const Vosh::Fib::FecId& fecId);
  void handleExtFecVia(const Mpls::LfibViaKey& key);
  void handleSyncRequestsReady(Qel::GenerationId generation);
  void queue(const Vosh::Fib::FecId& fecId);
  void queueUnanswered();
  void runAnswerTask();
  void answer(const Vosh::Fib::FecId& fecId);
  bool described(const Vosh::Fib::FecId& fecId) const;
  uint64_t grant(const Vosh::Fib::FecId& fecId);
  void release(const Vosh::Fib::FecId& fecId);
  void maybeDeclareSync();

  Kiv::Ptr<Vosh::EntityManager> em_;
  FecAllocatorConfig config_;
  Kiv::Ptr<Qel::FecIdToHwFecIdResponse> responses_;
  Kiv::Ptr<Qel::FecIdToHwFecIdResponse> multicastResponses_;
  Kiv::Ptr<FecAllocatorStatus> status_;
  Kiv::Ptr<Qel::FecIdToHwFecIdRequest> requests_;
  Kiv::Ptr<Mpls::LfibStatus> lfib_;
  std::deque<Change> queue_;
  Kiv::HashSet<Vosh::Fib::FecId> queued_;
  Kiv::HashMap<Vosh::Fib::FecId, uint64_t> grants_;
  Kiv::HashSet<uint64_t> hwToFec_;
  std::vector<uint64_t> freeHwIds_;
  uint64_t nextHwId_ = kFirstHwFecId;
  Kiv::HashSet<Vosh::Fib::FecId> asked_;
  // External FECs by the LFIB vias that name them.
  Kiv::HashMap<Mpls::LfibViaKey, Vosh::Fib::FecId> extFecOfVia_;
  Kiv::HashMap<Vosh::Fib::FecId, uint32_t> extFecUsers_;
  Qel::GenerationId syncing_ = 0;
  Qel::GenerationId declared_ = 0;
  Counters counters_;
  Plin::Task answerTask_;
  std::unique_ptr<Reactors> reactors_;
};

}  // namespace Sim
