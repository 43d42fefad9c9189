#include "korba/MountMode.h"

namespace Korba {

std::string MountMode::stringValue() const {
   std::string code = write ? "w" : "r";
   if (cellPath) code += 'c';
   if (sQualifier) code += 'S';
   return code;
}

std::optional<MountMode> mountModeFromCode(std::string_view code) {
   if (code.empty() || (code[0] != 'r' && code[0] != 'w')) return std::nullopt;
   MountMode mode;
   mode.write = code[0] == 'w';
   std::string_view qualifier = code.substr(1);
   if (qualifier == "c") {
      mode.cellPath = true;
   } else if (qualifier == "S") {
      mode.sQualifier = true;
   } else if (!qualifier.empty()) {
      return std::nullopt;
   }
   return mode;
}

}  // namespace Korba
