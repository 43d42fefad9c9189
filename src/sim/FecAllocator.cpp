#include "sim/FecAllocator.h"

#include <algorithm>
#include <functional>

#include "kiv/Entity.h"
#include "sim/HwDriver.h"
#include "sim/SharedTables.h"

namespace Sim {

using Vosh::Fib::FecId;

std::vector<Vosh::CollectionDecl> FecAllocatorStatus::collections() {
  return {Vosh::CollectionDecl{"adjSyncDone", 64}};
}

FecAllocatorStatus::FecAllocatorStatus(Vosh::EntityManager& em, std::string_view path)
    : Kiv::Entity(std::string(path)) {
  Vosh::bindTable(em, path, "adjSyncDone", adjSyncDone_);
}

class FecAllocator::Reactors : public Kiv::Reactor {
 public:
  Reactors(FecAllocator* allocator, const Qel::FecIdToHwFecIdRequest& requests,
           const Mpls::LfibStatus& lfib) {
    on(requests.onHwFecIdRequest(), [allocator](const FecId& id) { allocator->handleRequest(id); });
    on(requests.onFec(), [allocator](const FecId& id) { allocator->handleRequest(id); });
    on(requests.onFec6(), [allocator](const FecId& id) { allocator->handleRequest(id); });
    on(requests.onSyncRequestsReady(),
       [allocator](const Qel::GenerationId& g) { allocator->handleSyncRequestsReady(g); });
    on(lfib.onExtFecVia(),
       [allocator](const Mpls::LfibViaKey& key) { allocator->handleExtFecVia(key); });
  }
};

namespace {

Kiv::Ptr<Qel::FecIdToHwFecIdResponse> mountResponses(Vosh::EntityManager& em, const char* path) {
  em.mountWriter(path, Qel::FecIdToHwFecIdResponse::collections());
  return Kiv::make<Qel::FecIdToHwFecIdResponse>(em, path);
}

}  // namespace

FecAllocator::FecAllocator(const std::string& prefix, Plin::TaskScheduler* scheduler,
                           const FecAllocatorConfig& config)
    : em_(Kiv::make<Vosh::EntityManager>(prefix, scheduler)),
      config_(config),
      answerTask_(em_->scheduler(), HwDriver::kTaskPriority, "Sim::FecAllocator-answerTask",
                  [this] { runAnswerTask(); }) {
  responses_ = mountResponses(*em_, kResponsePath);
  multicastResponses_ = mountResponses(*em_, kMulticastResponsePath);
  em_->mountWriter(FecAllocatorStatus::kPath, FecAllocatorStatus::collections());
  status_ = Kiv::make<FecAllocatorStatus>(*em_, FecAllocatorStatus::kPath);
  recoverGrants();
}

// What the allocator granted stays in its tables; only its own view goes
// with its entity manager.
FecAllocator::~FecAllocator() { reactors_.reset(); }

void FecAllocator::recoverGrants() {
  responses_->forEachHwFecId([this](const FecId& fecId, const Qel::HwFecIdResponse& r) {
    if (!r.hwFecIdValid()) return;
    grants_.insert(fecId, r.hwFecId);
    hwToFec_.insert(r.hwFecId);
    nextHwId_ = std::max(nextHwId_, r.hwFecId + 1);
  });
  for (uint64_t id = kFirstHwFecId; id < nextHwId_; ++id) {
    if (!hwToFec_.contains(id)) freeHwIds_.push_back(id);
  }
  std::make_heap(freeHwIds_.begin(), freeHwIds_.end(), std::greater<>());
}

bool FecAllocator::attach() {
  if (attached()) return true;
  if (!tableReadable(*em_, kLfibPath) || !tableReadable(*em_, kRequestPath)) return false;
  lfib_ = Kiv::make<Mpls::LfibStatus>(*em_, kLfibPath);
  requests_ = Kiv::make<Qel::FecIdToHwFecIdRequest>(*em_, kRequestPath);
  reactors_ = std::make_unique<Reactors>(this, *requests_, *lfib_);
  lfib_->forEachExtFecVia([this](const Mpls::LfibViaKey& key, const auto&) { handleExtFecVia(key); });
  requests_->forEachHwFecIdRequest([this](const FecId& id, const auto&) { handleRequest(id); });
  // Answers to requests withdrawn while nobody was looking go too.
  responses_->forEachHwFecId([this](const FecId& id, const auto&) { queue(id); });
  requests_->forEachSyncRequestsReady(
      [this](Qel::GenerationId g, const auto&) { handleSyncRequestsReady(g); });
  return true;
}

// Requests left unanswered for want of answers or of room are looked at
// again once there may be either.
void FecAllocator::configIs(const FecAllocatorConfig& config) {
  const bool moreAnswers = (!config_.answer && config.answer) || config.capacity > config_.capacity;
  config_ = config;
  if (moreAnswers) queueUnanswered();
}

void FecAllocator::queueUnanswered() {
  if (!attached()) return;
  requests_->forEachHwFecIdRequest([this](const FecId& id, const Qel::HwFecIdRequest& request) {
    if (responses_->hwFecId(id).request != request) queue(id);
  });
}

void FecAllocator::handleRequest(const FecId& fecId) {
  if (requests_->hwFecIdRequestHas(fecId)) asked_.insert(fecId);
  queue(fecId);
}

void FecAllocator::handleExtFecVia(const Mpls::LfibViaKey& key) {
  Mpls::LfibExternalFecVia via = lfib_->extFecVia(key);
  FecId fecId(via.fecId);
  if (const FecId* old = extFecOfVia_.find(key)) {
    if (via && *old == fecId) return;
    const FecId gone = *old;
    extFecOfVia_.erase(key);
    if (--extFecUsers_[gone] == 0) extFecUsers_.erase(gone);
    queue(gone);
  }
  if (!via) return;
  extFecOfVia_.insert(key, fecId);
  ++extFecUsers_[fecId];
  queue(fecId);
}

void FecAllocator::handleSyncRequestsReady(Qel::GenerationId generation) {
  Qel::SyncRequestsReady ready = requests_->syncRequestsReady(generation);
  if (!ready.ready || generation <= std::max(syncing_, declared_)) return;
  syncing_ = generation;
  maybeDeclareSync();
}

void FecAllocator::queue(const FecId& fecId) {
  if (!queued_.insert(fecId)) return;
  queue_.push_back(Change{em_->scheduler()->now() + config_.answerDelay, fecId});
  if (queue_.size() == 1) answerTask_.scheduleAfter(config_.answerDelay);
}

void FecAllocator::runAnswerTask() {
  const double now = em_->scheduler()->now();
  while (!queue_.empty() && queue_.front().due <= now) {
    const FecId fecId = queue_.front().fecId;
    queue_.pop_front();
    queued_.erase(fecId);
    answer(fecId);
    if (answerTask_.taskShouldYield()) break;
  }
  if (queue_.empty()) {
    maybeDeclareSync();
  } else if (queue_.front().due <= now) {
    answerTask_.scheduleNow();
  } else {
    answerTask_.scheduleAfter(queue_.front().due - now);
  }
}

void FecAllocator::answer(const FecId& fecId) {
  Qel::HwFecIdRequest request = requests_->hwFecIdRequest(fecId);
  const bool external = extFecUsers_.contains(fecId);
  if (!request && !external) {
    release(fecId);
    return;
  }
  if (!config_.answer || (request && !described(fecId))) return;
  const uint64_t hwFecId = grant(fecId);
  if (hwFecId == Qel::HwFecIdResponse::kInvalidHwFecId) return;
  const Qel::HwFecIdResponse response{fecId, hwFecId, request};
  if (responses_->hwFecId(fecId) == response) return;
  responses_->hwFecIdIs(fecId, response);
  ++counters_.fecAnswers;
}

bool FecAllocator::described(const FecId& fecId) const {
  return requests_->fecHas(fecId) || requests_->fec6Has(fecId);
}

uint64_t FecAllocator::grant(const FecId& fecId) {
  if (const uint64_t* granted = grants_.find(fecId)) return *granted;
  if (grants_.size() >= config_.capacity) return Qel::HwFecIdResponse::kInvalidHwFecId;
  uint64_t hwFecId = nextHwId_;
  if (freeHwIds_.empty()) {
    ++nextHwId_;
  } else {
    std::pop_heap(freeHwIds_.begin(), freeHwIds_.end(), std::greater<>());
    hwFecId = freeHwIds_.back();
    freeHwIds_.pop_back();
  }
  grants_.insert(fecId, hwFecId);
  hwToFec_.insert(hwFecId);
  return hwFecId;
}

void FecAllocator::release(const FecId& fecId) {
  if (responses_->hwFecIdHas(fecId)) responses_->hwFecIdDel(fecId);
  const uint64_t* granted = grants_.find(fecId);
  if (!granted) return;
  hwToFec_.erase(*granted);
  freeHwIds_.push_back(*granted);
  std::push_heap(freeHwIds_.begin(), freeHwIds_.end(), std::greater<>());
  grants_.erase(fecId);
}

// A generation is synchronised once every request filed under it carries
// its answer; requests of older generations are the requester's to withdraw.
void FecAllocator::maybeDeclareSync() {
  if (syncing_ == 0 || !config_.answer || !queue_.empty()) return;
  bool answered = true;
  requests_->forEachHwFecIdRequest([&](const FecId& id, const Qel::HwFecIdRequest& request) {
    if (answered && request.syncId.generation == syncing_ &&
        responses_->hwFecId(id).request != request) {
      answered = false;
    }
  });
  if (!answered) return;
  status_->adjSyncDoneDelAll();
  status_->adjSyncDoneIs(syncing_, Qel::SyncRequestsReady{syncing_, true});
  ++counters_.syncsDeclared;
  declared_ = syncing_;
  syncing_ = 0;
}

}  // namespace Sim
