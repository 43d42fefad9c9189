#include "pellet/LevelSettings.h"

#include <charconv>
#include <optional>

#include <fmt/format.h>
#include <fmt/ostream.h>

namespace Pellet {

namespace {

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

std::optional<int> parsedLevel(std::string_view text) {
  int level = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (level < 0 || level >= levelCount) return std::nullopt;
  return level;
}

// "n" or "n-m" with n <= m; nothing for anything else.
std::optional<LevelMask> parsedLevelItem(std::string_view item) {
  const auto dash = item.find('-');
  const auto low = parsedLevel(item.substr(0, dash));
  if (!low) return std::nullopt;
  if (dash == std::string_view::npos) return levelBit(*low);
  const auto high = parsedLevel(item.substr(dash + 1));
  if (!high || *high < *low) return std::nullopt;
  LevelMask mask = 0;
  for (int level = *low; level <= *high; ++level) mask |= levelBit(level);
  return mask;
}

void reportIgnored(std::ostream& errors, std::string_view item, std::string_view why) {
  fmt::print(errors, FMT_STRING("pellet: ignored trace setting \"{}\": {}\n"), item, why);
}

}  // namespace

std::vector<LevelSetting> parseLevelSettings(std::string_view text, std::ostream& errors) {
  std::vector<LevelSetting> settings;
  bool facilityOpen = false;
  while (!text.empty()) {
    const auto comma = text.find(',');
    const std::string_view item = trimmed(text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    if (item.empty()) continue;

    std::string_view levels = item;
    const auto slash = item.find('/');
    if (slash != std::string_view::npos) {
      const std::string_view facility = trimmed(item.substr(0, slash));
      facilityOpen = !facility.empty();
      if (!facilityOpen) {
        reportIgnored(errors, item, "no facility before '/'");
        continue;
      }
      settings.push_back(LevelSetting{std::string(facility), 0});
      levels = trimmed(item.substr(slash + 1));
    } else if (!facilityOpen) {
      reportIgnored(errors, item, "expected Facility/levels");
      continue;
    }

    const auto mask = parsedLevelItem(levels);
    if (!mask) {
      reportIgnored(errors, item, "levels are 0 to 9, as n or n-m");
      continue;
    }
    settings.back().levels |= *mask;
  }
  std::erase_if(settings, [](const LevelSetting& s) { return s.levels == 0; });
  return settings;
}

}  // namespace Pellet
