#include "Qel/FeatureToggle.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace Qel {

namespace {

using ToggleFile = std::map<std::string, bool, std::less<>>;

std::string toggleDirectory() {
  const char* dir = std::getenv("QELMPLS_TOGGLE_DIR");
  return dir ? dir : "/etc/qelmpls/toggles";
}

void skipSpace(std::string_view s, size_t& i) {
  while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
}

bool expect(std::string_view s, size_t& i, char c) {
  skipSpace(s, i);
  if (i >= s.size() || s[i] != c) return false;
  ++i;
  return true;
}

std::optional<std::string> parseString(std::string_view s, size_t& i) {
  if (!expect(s, i, '"')) return std::nullopt;
  size_t end = s.find('"', i);
  if (end == std::string_view::npos) return std::nullopt;
  std::string out(s.substr(i, end - i));
  i = end + 1;
  return out;
}

std::optional<bool> parseBool(std::string_view s, size_t& i) {
  skipSpace(s, i);
  if (s.substr(i, 4) == "true") {
    i += 4;
    return true;
  }
  if (s.substr(i, 5) == "false") {
    i += 5;
    return false;
  }
  return std::nullopt;
}

std::optional<ToggleFile> parseToggleFile(std::string_view s) {
  ToggleFile out;
  size_t i = 0;
  if (!expect(s, i, '{')) return std::nullopt;
  skipSpace(s, i);
  if (i < s.size() && s[i] == '}') return out;
  for (;;) {
    auto name = parseString(s, i);
    if (!name || !expect(s, i, ':')) return std::nullopt;
    auto value = parseBool(s, i);
    if (!value) return std::nullopt;
    out[*name] = *value;
    skipSpace(s, i);
    if (i < s.size() && s[i] == ',') {
      ++i;
      continue;
    }
    if (!expect(s, i, '}')) return std::nullopt;
    return out;
  }
}

std::map<std::string, ToggleFile, std::less<>>& cache() {
  static std::map<std::string, ToggleFile, std::less<>> files;
  return files;
}

const ToggleFile& loadToggleFile(std::string_view file) {
  auto& files = cache();
  if (auto it = files.find(file); it != files.end()) return it->second;
  std::string path = toggleDirectory() + "/" + std::string(file);
  ToggleFile toggles;
  if (std::ifstream in(path); in) {
    std::stringstream text;
    text << in.rdbuf();
    if (auto parsed = parseToggleFile(text.str())) {
      toggles = std::move(*parsed);
    } else {
      std::fprintf(stderr, "feature toggles: cannot parse %s; using defaults\n", path.c_str());
    }
  }
  return files.emplace(std::string(file), std::move(toggles)).first->second;
}

}  // namespace

bool featureToggleEnabled(std::string_view file, std::string_view toggle) {
  const ToggleFile& toggles = loadToggleFile(file);
  auto it = toggles.find(toggle);
  return it == toggles.end() || it->second;
}

void featureTogglesReset() { cache().clear(); }

}  // namespace Qel
