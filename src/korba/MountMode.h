#pragma once
// Mount mode codes: "r" read or "w" write, then at most one of "c" (the path
// is under the switch's own cell) or "S". Nothing in-process depends on "S";
// it is accepted and kept so that the mount log shows what was asked for.

#include <optional>
#include <string>
#include <string_view>

namespace Korba {

struct MountMode {
   bool write = false;
   bool cellPath = false;
   bool sQualifier = false;

   // The mode code this mode was read from.
   std::string stringValue() const;
   friend bool operator==(const MountMode&, const MountMode&) = default;
};

// Nothing for a code outside "r", "w", "rc", "wc", "rS", "wS".
std::optional<MountMode> mountModeFromCode(std::string_view code);

}  // namespace Korba
