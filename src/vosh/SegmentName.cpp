#include "vosh/SegmentName.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace Vosh {

namespace {

constexpr const char* kShmDirectory = "/dev/shm";

template <class F>
void forEachShmEntry(F&& f) {
  DIR* dir = opendir(kShmDirectory);
  if (!dir) return;
  while (const dirent* e = readdir(dir)) f(std::string_view(e->d_name));
  closedir(dir);
}

// The generation that `entry` (a directory entry, no '/') names for `stem`,
// or -1 when it names something else.
int64_t generationOf(std::string_view entry, std::string_view stem) {
  if (entry.substr(0, stem.size()) != stem) return -1;
  std::string_view rest = entry.substr(stem.size());
  if (rest.empty()) return 0;
  if (rest.substr(0, 2) != ".g" || rest.size() == 2) return -1;
  uint32_t n = 0;
  auto [end, ec] = std::from_chars(rest.data() + 2, rest.data() + rest.size(), n);
  if (ec != std::errc() || end != rest.data() + rest.size() || n == 0) return -1;
  return n;
}

}  // namespace

std::string segmentBaseName(std::string_view prefix, std::string_view path) {
  std::string name = fmt::format("/{}.{}", prefix, path);
  std::replace(name.begin() + 1, name.end(), '/', '.');
  return name;
}

std::string segmentGenerationName(std::string_view baseName, uint32_t generation) {
  if (generation == 0) return std::string(baseName);
  return fmt::format("{}.g{}", baseName, generation);
}

std::vector<uint32_t> segmentGenerationsPresent(std::string_view baseName) {
  std::string_view stem = baseName.substr(1);
  std::vector<uint32_t> generations;
  forEachShmEntry([&](std::string_view entry) {
    int64_t g = generationOf(entry, stem);
    if (g >= 0) generations.push_back(static_cast<uint32_t>(g));
  });
  std::sort(generations.begin(), generations.end());
  return generations;
}

std::vector<std::string> segmentNamesUnder(std::string_view prefix) {
  std::string stem = fmt::format("{}.", prefix);
  std::vector<std::string> names;
  forEachShmEntry([&](std::string_view entry) {
    if (entry.substr(0, stem.size()) == stem) names.push_back(fmt::format("/{}", entry));
  });
  std::sort(names.begin(), names.end());
  return names;
}

uint64_t segmentBytesUnder(std::string_view prefix) {
  uint64_t total = 0;
  for (const std::string& name : segmentNamesUnder(prefix)) {
    struct stat st {};
    if (stat(fmt::format("{}{}", kShmDirectory, name).c_str(), &st) == 0) {
      total += static_cast<uint64_t>(st.st_blocks) * 512;
    }
  }
  return total;
}

}  // namespace Vosh
