#include "plin/AttrLogSm.h"

namespace Plin {

AttrLogSm::AttrLogSm(std::string name) : Kiv::Entity(std::move(name)) {}

void AttrLogSm::attrLogOutCloggedIs(bool clogged) {
   if (attrLogOutClogged_ == clogged) return;
   attrLogOutClogged_ = clogged;
   onAttrLogOutClogged();
}

}  // namespace Plin
