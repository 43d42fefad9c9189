#pragma once

// The mediated programming mode: routes point at hardware FEC ids that a FEC
// allocator, an agent of its own, grants.
//
// The road of an adjacency. Its via set becomes a FEC description (a Fec,
// or a Fec6 for an IPv6 payload) filed in the request table under a FEC id
// this library allocates: adjacency type 9 or 10 in the top byte, a number
// from the core's FEC number allocator below. The request record carries the
// synchronisation id (this run's generation and a sequence number bumped on
// every change), and the allocator's answer echoes the request it answers, so
// an answer to a request since replaced is ignored. Until the answer comes,
// a route keeps whatever hardware record it has; once the FEC has a hardware
// id, every route of the adjacency is written pointing at it. Filing writes
// only what changed: a review that finds the same description and request
// writes nothing, which is what keeps a restart from touching the allocator's
// grants or the hardware.
//
// Ownership. An ExternalFecInfo per FEC id holds the adjacencies and the
// routes that use the FEC; routes join it when the driver confirms their
// record and leave it when a confirmed record points elsewhere, so the FEC
// (and its number) is released only once no route in hardware still points at
// it: make before break.
//
// External FECs. A via set of the external-FEC type names a FEC owned outside
// this library; its adjacency depends on that FEC's record and nothing is
// requested. A FEC of another owner is never released here.
//
// Backups. A via set may name a backup via set. The primary's FEC description
// names the backup's FEC; the primary backs off (and is reviewed again after
// kBackupBackoff seconds) while the backup is missing, has a backup of its
// own, is itself waiting for review or is a primary that is still pending.
//
// Restart. The request table survives the agent: at a start with non-stop
// forwarding the FEC ids recorded per via set are taken back from it
// (objTupleToFecId), so the same via sets get the same FEC ids and the
// allocator the same requests; a new generation re-files each request once.
// The answer to a description filed before the restart stands for the same
// description after it, so routes whose records already point at it are
// taken over as they are, without a write.
// When every request is filed the generation is declared ready
// (syncRequestsReady); the allocator answers and reports the generation's
// adjacencies synchronised, which ends the sync. FEC ids recovered and not
// claimed again by then are released. Without non-stop forwarding a start is
// cold: the request table is emptied with the hardware tables.

#include <vector>

#include "QelMpls/core/QelMplsSm.h"
#include "kiv/DenseSet.h"
#include "kiv/HashMap.h"

namespace Qel {

class FecIdToHwFecIdResponse;
class McastGroupProgConfig;
class McastHwStatus;

// The labels a packet gains (negative: loses) at a hop doing `action` with
// `labelOperation`.
int getStackDepthAfterAction(Bexo::MplsLabelAction action,
                             const Bexo::UnboundedMplsLabelOperation& labelOperation,
                             const std::string& traceTag);
// Whether the via leaves the packet with no label of its own, so that the
// egress ACL need not look at it.
bool getSkipEgressAclPd(Bexo::MplsLabelAction action, const Mpls::LfibMplsVia& via);

class MplsRouteAndMediatedAdjSm : public MplsBaseSm {
 public:
  // The mediated inputs, after the 24 common ones.
  struct MediatedInputs {
    Kiv::Ptr<const FecIdToHwFecIdResponse> hwFecIdResponse;
    Kiv::Ptr<McastGroupProgConfig> mcastGroupProgConfig;
    Kiv::Ptr<McastHwStatus> mcastHwStatus;
    Kiv::Ptr<FecIdToHwFecIdRequest> mplsMulticastFecRequest;
    Kiv::Ptr<const FecIdToHwFecIdResponse> mplsMulticastFecResponse;
  };

  static constexpr double kBackupBackoff = 0.1;

  MplsRouteAndMediatedAdjSm(const std::string& name, const Inputs& inputs,
                            const MediatedInputs& mediated);
  ~MplsRouteAndMediatedAdjSm() override;

  bool forwardingIntoExternalFecsSupported() const override { return true; }
  bool forwardingIntoMldpSupported() const { return false; }
  void handleInitializedSubClass() override;
  void reviewL3Adj(L3AdjIndex index, L3Adjacency* adjacency) override;
  bool reviewRouteKey(const Mpls::RouteKey& routeKey, MplsRoute* route) override;
  void handleHwRouteStatus(const Mpls::RouteKey& routeKey) override;
  void cleanL3Adj(L3Adjacency* adjacency) override;

  // Start-up and sync.
  GenerationId syncGeneration() const override { return generation_; }
  bool adjSyncDone() const override;
  void handleWaitingForSyncResponses() override;
  void releaseUnclaimedRecoveredState() override;

  // FEC ids and requests.
  Vosh::Fib::FecId getOrAllocateMplsFecId(const Mpls::LfibViaSetKey& viaSetKey,
                                          Bexo::AddressFamily af, bool forceNew);
  Vosh::Fib::FecId getFecIdForRequest(const L3Adjacency* adjacency,
                                      const CachedLFibMplsViaColl* vias, bool forceNew);
  Vosh::Fib::FecId getBackupFecIdForRequest(const L3Adjacency* adjacency) const;
  void getProgrammableFecVias(const CachedLFibMplsViaColl& vias,
                              ProgrammableMplsFecVias& programmable) const;
  void processRemovePopDependencies(L3Adjacency* adjacency, bool hadPop, bool hasPop);
  void requestHwFecIdAndUpdateDependencyMaps(Vosh::Fib::FecId fecId, const Vosh::Fib::Fec& fec,
                                             bool ipv6, L3Adjacency* adjacency);
  void setHwAdjacencyVias(L3Adjacency* adjacency, const Mpls::LfibViaSet& viaSet,
                          const ProgrammableMplsFecVias& programmable);

  // Answers.
  void handleHwFecIdResponse(Vosh::Fib::FecId fecId);
  void processHwFecIdResponse(ExternalFecInfo* info, const HwFecIdResponse& response);
  void setAdjHwState(ExternalFecInfo* info, uint64_t hwFecId, bool forwarding);
  void setHwBackupAdjStatus(const L3Adjacency* adjacency);

  // External FECs and backups.
  Mpls::LfibExternalFecVia getSaneExtFecVia(const Mpls::LfibViaSet& viaSet) const;
  void processExtFecL3Adj(L3Adjacency* adjacency, const Mpls::LfibExternalFecVia& via);
  void addRouteKeyToExtFecInfo(const Mpls::RouteKey& routeKey, ExternalFecInfo* info);
  void updateBackupExtInfoForExtFecInfo(ExternalFecInfo* info, Vosh::Fib::FecId backupFecId);
  bool validateAndMaybeUpdateBackupAdjInfo(const Mpls::LfibViaSet& viaSet,
                                           L3Adjacency* adjacency);

  const FecIdToHwFecIdResponse* hwFecIdResponse() const { return mediated_.hwFecIdResponse.get(); }
  FecIdToHwFecIdRequest* hwFecIdRequest() const { return inputs().hwFecIdRequest.get(); }

 private:
  class Reactors;
  bool processMplsIpL3Adj(L3Adjacency* adjacency, const Mpls::LfibViaSet& viaSet);
  bool popFiled(Vosh::Fib::FecId fecId) const;
  Kiv::Ptr<L3Adjacency> backupAdjFor(const Mpls::LfibViaSetKey& key);
  void linkBackup(L3Adjacency* adjacency, L3Adjacency* backup);
  void unlinkBackup(L3Adjacency* adjacency);
  bool adoptRecoveredRecord(const Mpls::RouteKey& routeKey, MplsRoute* route,
                            Vosh::Qel::MplsHwRouteConfig config,
                            const Vosh::Qel::MplsHwRouteConfig& stored, ExternalFecInfo* info);
  void moveRouteToConfirmedFec(const Mpls::RouteKey& routeKey, MplsRoute* route);
  void buildFec(Vosh::Fib::FecId fecId, Vosh::Fib::FecId backupFecId,
                const ProgrammableMplsFecVias& programmable, Vosh::Fib::Fec& fec) const;
  void fileRequest(Vosh::Fib::FecId fecId, const HwFecIdRequest& filed, uint32_t viaCount,
                   bool descriptionChanged);
  void adoptStandingAnswer(ExternalFecInfo* info, const HwFecIdRequest& filed);
  void attachExtFecInfo(L3Adjacency* adjacency, const Kiv::Ptr<ExternalFecInfo>& info);
  void detachExtFecInfo(L3Adjacency* adjacency);
  void markL3AdjNotSane(L3Adjacency* adjacency);
  void backOff(L3Adjacency* adjacency);
  void runBackupBackoffTask();
  void writeRouteRecord(const Mpls::RouteKey& routeKey, MplsRoute* route,
                        const L3Adjacency* adjacency, ExternalFecInfo* info);
  void waitForHwFecId(const Mpls::RouteKey& routeKey, MplsRoute* route);
  void unprogramRoute(const Mpls::RouteKey& routeKey, MplsRoute* route,
                      const L3Adjacency* adjacency);
  void recoverFecIds();
  void emptyRequestTable();

  MediatedInputs mediated_;
  Pellet::Facility trace_;
  GenerationId generation_ = 1;
  uint32_t syncSequence_ = 0;
  // FEC ids the previous run had filed per via set, until claimed again or
  // released at the end of the sync.
  Kiv::HashMap<Mpls::LfibViaSetKey, Vosh::Fib::FecId> recoveredFecId_;
  Kiv::HashSet<L3AdjIndex> backedOff_;
  std::unique_ptr<Plin::Task> backupBackoffTask_;
  // Refilled by every adjacency review, so that a review allocates nothing
  // for them.
  ProgrammableMplsFecVias programmableScratch_;
  Vosh::Fib::Fec fecScratch_;
  std::unique_ptr<Reactors> reactors_;
};

Kiv::Ptr<MplsRouteAndMediatedAdjSm> mplsRouteAndMediatedAdjSmFactory(
    const MplsBaseSm::Inputs& inputs, const MplsRouteAndMediatedAdjSm::MediatedInputs& mediated);

}  // namespace Qel
