#include "sim/Agent.h"

#include "sim/SimHelper.h"

namespace Sim {

Agent::Agent(Plin::TaskScheduler* scheduler, Kiv::Ptr<Korba::EntityManager> korba,
             std::string prefix, ProgrammingMode mode)
    : scheduler_(scheduler), korba_(std::move(korba)), prefix_(std::move(prefix)), mode_(mode) {}

Agent::~Agent() { stop(); }

void Agent::start() {
  if (running()) return;
  ++starts_;
  vosh_ = Kiv::make<Vosh::EntityManager>(prefix_, scheduler_);
  modeConfig_ = Kiv::make<Qel::MplsProgrammingModeConfig>("mplsProgrammingModeConfig");
  const bool mediated = mode_ == ProgrammingMode::mediated;
  modeConfig_->adjacencyProgrammerIs(
      mediated ? Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyMediated
               : Qel::MplsSmAdjacencyProgrammer::mplsSmAdjacencyDirect);
  localLfibInfo_ = Kiv::make<Mpls::LocalLfibInfo>("localLfibInfo");
  localLfibInfo_->systemLfibReadyIs(true);
  hwConfig_ = Qel::mplsHwConfigFactory("mplsHwConfig");
  hwStatus_ = Qel::mplsHwStatusFactory("mplsHwStatus");
  Vosh::EntityManager::agentEntityManagerIs(vosh_.get());
  root_ = Qel::mplsRootSmFactory(modeConfig_, Kiv::make<SimHelper>(mediated), korba_,
                                 Kiv::make<Plin::AttrLogSm>(), scheduler_, localLfibInfo_,
                                 hwConfig_, hwStatus_);
}

void Agent::stop() {
  root_ = nullptr;
  hwStatus_ = nullptr;
  hwConfig_ = nullptr;
  localLfibInfo_ = nullptr;
  modeConfig_ = nullptr;
  vosh_ = nullptr;
}

}  // namespace Sim
