#include "sim/SharedTables.h"

namespace Sim {

bool tableReadable(Vosh::EntityManager& em, std::string_view path) {
  if (em.mounted(path)) return true;
  try {
    em.mountReader(path, Vosh::mountTypeSharedReader);
    return true;
  } catch (const Vosh::MountError&) {
    return false;
  }
}

}  // namespace Sim
