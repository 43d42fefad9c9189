#pragma once

// Feature toggles, read once per process from toggle files and cached.
//
// A toggle file is a flat JSON object of booleans, e.g. {"QelMplsAgentKivModels": false},
// named like "QelMpls.json", in the toggle directory: $QELMPLS_TOGGLE_DIR when set,
// otherwise /etc/qelmpls/toggles. A toggle missing from its file, or a missing
// file, is on. A file that cannot be parsed is reported on stderr once and
// treated as missing.

#include <string>
#include <string_view>

namespace Qel {

bool featureToggleEnabled(std::string_view file, std::string_view toggle);

// Forgets the cached values so the next query reads the files again (tests,
// and a tool that runs several agents in one process with different toggles).
void featureTogglesReset();

}  // namespace Qel
