#include "sim/InterfacePublisher.h"

namespace Sim {

InterfacePublisher::InterfacePublisher(Korba::EntityManager& korba)
    : table_(Kiv::make<QelL3Intf::Table>(kPath)) {
  korba.entityIs(kPath, QelL3Intf::Table::kTypeName, table_);
}

void InterfacePublisher::interfaceIs(const InterfaceSpec& given) {
  table_->intfIdToL3IdIs(given.name, QelL3Intf::L3Id{given.vlan, given.hwSupported, given.routedPort});
}

void InterfacePublisher::interfaceDel(Bexo::IntfId name) { table_->intfIdToL3IdDel(name); }

}  // namespace Sim
