#pragma once

// The agent's layer-3 interface table ("qel/l3IntfTable" in the state
// database): per interface the VLAN that carries it, whether the hardware
// can program it and whether it is a routed port.

#include "korba/EntityManager.h"
#include "models/QelL3IntfTable.h"
#include "sim/Scenario.h"

namespace Sim {

class InterfacePublisher {
 public:
  static constexpr const char* kPath = "qel/l3IntfTable";

  explicit InterfacePublisher(Korba::EntityManager& korba);

  void interfaceIs(const InterfaceSpec& given);
  void interfaceDel(Bexo::IntfId name);
  const QelL3Intf::Table& table() const { return *table_; }

 private:
  Kiv::Ptr<QelL3Intf::Table> table_;
};

}  // namespace Sim
