#pragma once

// One run of the forwarding agent's MPLS library, built the way an agent
// builds it: its own shared-memory entity manager (a process's mappings), the
// platform helper, the attribute log, the local LFIB view and the two
// hardware singletons, and the root state machine in the scenario's mode.
//
// stop() tears the library down the way a dying agent process would: the
// root goes, and with it every mapping the agent held; what it wrote into
// shared memory and the state database stays for the next start.

#include <string>

#include "QelMpls/root/QelMplsRootSm.h"
#include "korba/EntityManager.h"
#include "plin/AttrLogSm.h"
#include "plin/TaskScheduler.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class Agent {
 public:
  Agent(Plin::TaskScheduler* scheduler, Kiv::Ptr<Korba::EntityManager> korba, std::string prefix,
        ProgrammingMode mode);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  void start();
  void stop();
  bool running() const { return root_ != nullptr; }
  uint32_t starts() const { return starts_; }

  const Kiv::Ptr<Qel::MplsRootSm>& root() const { return root_; }
  // The core state machine, once the root has built it.
  Qel::MplsBaseSm* core() const { return root_ ? root_->mplsSm().get() : nullptr; }
  const Kiv::Ptr<Qel::MplsHwStatus>& hwStatus() const { return hwStatus_; }

 private:
  Plin::TaskScheduler* scheduler_;
  Kiv::Ptr<Korba::EntityManager> korba_;
  std::string prefix_;
  ProgrammingMode mode_;
  uint32_t starts_ = 0;
  Kiv::Ptr<Vosh::EntityManager> vosh_;
  Kiv::Ptr<Qel::MplsProgrammingModeConfig> modeConfig_;
  Kiv::Ptr<Mpls::LocalLfibInfo> localLfibInfo_;
  Kiv::Ptr<Qel::MplsHwConfig> hwConfig_;
  Kiv::Ptr<Qel::MplsHwStatus> hwStatus_;
  Kiv::Ptr<Qel::MplsRootSm> root_;
};

}  // namespace Sim
