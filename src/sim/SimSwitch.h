#pragma once

// The simulated switch: everything that stands around the MPLS library on a
// real switch, talking to it only through the tables and entities a platform
// uses. The routing side (LFIB producer, routing information, VRFs), the
// interface, ARP and MAC tables, the proactive-ARP responder, the platform's
// hardware singletons, the hardware driver and the FEC allocator; and the
// agent that runs the library.
//
// The platform lives in its own shared-memory entity manager and the agent in
// another, as if in separate processes, so that restarting the agent leaves
// every table the platform wrote, and the "hardware", in place. The driver
// and the FEC allocator may also run in a process of their own
// (externalDriver): the switch then only waits for their tables to exist.

#include <memory>
#include <optional>
#include <string>

#include "korba/EntityManager.h"
#include "plin/TaskScheduler.h"
#include "sim/Agent.h"
#include "sim/ArpPublisher.h"
#include "sim/FdbPublisher.h"
#include "sim/FecAllocator.h"
#include "sim/HwDriver.h"
#include "sim/InterfacePublisher.h"
#include "sim/LfibProducer.h"
#include "sim/PlatformStatus.h"
#include "sim/ProactiveArpResponder.h"
#include "sim/RoutingPublisher.h"
#include "sim/Scenario.h"
#include "vosh/EntityManager.h"

namespace Sim {

class SimSwitch {
 public:
  struct Options {
    std::string prefix;
    bool externalDriver = false;
    ProgrammingMode mode = ProgrammingMode::direct;
    DriverConfig driver;
    FecAllocatorConfig fecAllocator;
  };

  SimSwitch(Plin::TaskScheduler* scheduler, const Options& options);
  ~SimSwitch();
  SimSwitch(const SimSwitch&) = delete;
  SimSwitch& operator=(const SimSwitch&) = delete;

  // Inputs, applied in an order that never lets a reader see a dangling
  // reference: interfaces and neighbours before routes, routes gone before
  // what they used.
  void inputsIs(const InputSections& inputs);
  void inputsDel(const InputKeys& keys);
  void routingIs(const RoutingSpec& routing) { routing_.routingIs(routing); }
  void platformIs(const PlatformSpec& given);
  void lfibQuiescedIs(bool quiesced) { lfib_.quiescedIs(quiesced); }

  // Whether the driver's and the FEC allocator's tables exist; the agent
  // cannot start before.
  bool driverTableExists();
  void agentStart();
  void agentStop();
  // Attaches the platform's readers of the agent's tables once they exist.
  void attachReaders();

  Plin::TaskScheduler* scheduler() const { return scheduler_; }
  const std::string& prefix() const { return prefix_; }
  Agent& agent() { return agent_; }
  const Agent& agent() const { return agent_; }
  // Null when the driver runs in its own process, or stopped.
  HwDriver* driver() const { return driver_.get(); }
  // The in-process driver goes away, as a crashed driver would; what the
  // hardware holds stays in its tables.
  void driverStop() { driver_.reset(); }
  // Null when it runs in the driver's process, or stopped.
  const FecAllocator* fecAllocator() const { return fecAllocator_.get(); }
  void fecAllocatorStop() {
    if (driver_) driver_->fecAllocatorIs(nullptr);
    fecAllocator_.reset();
  }
  const LfibProducer& lfib() const { return lfib_; }
  const ProactiveArpResponder& proactiveArp() const { return responder_; }
  const DriverConfig& driverConfig() const { return driverConfig_; }
  const PlatformStatus& platformStatus() const { return platform_; }
  Korba::EntityManager& korba() const { return *korba_; }
  const Kiv::Ptr<Vosh::EntityManager>& vosh() const { return vosh_; }

 private:
  Plin::TaskScheduler* scheduler_;
  std::string prefix_;
  DriverConfig driverConfig_;
  FecAllocatorConfig fecAllocatorConfig_;
  Kiv::Ptr<Vosh::EntityManager> vosh_;
  Kiv::Ptr<Korba::EntityManager> korba_;
  LfibProducer lfib_;
  InterfacePublisher interfaces_;
  RoutingPublisher routing_;
  ArpPublisher arp_;
  FdbPublisher fdb_;
  ProactiveArpResponder responder_;
  PlatformStatus platform_;
  std::unique_ptr<FecAllocator> fecAllocator_;
  std::unique_ptr<HwDriver> driver_;
  Agent agent_;
};

}  // namespace Sim
