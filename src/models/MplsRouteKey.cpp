#include "models/MplsRouteKey.h"

#include <fmt/format.h>

#include <charconv>
#include <stdexcept>

namespace Mpls {

RouteKey RouteKey::fromString(std::string_view text) {
  auto slash = text.find('/');
  Bexo::MplsLabel label = Bexo::MplsLabel::fromString(text.substr(0, slash));
  LfibSource source = kDefaultLfibSource;
  if (slash != std::string_view::npos) {
    std::string_view s = text.substr(slash + 1);
    unsigned v = 0;
    auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || p != s.data() + s.size() || v > 255 || s.empty()) {
      throw std::invalid_argument(
          fmt::format("bad route key '{}': expected LABEL or LABEL/SOURCE (source 0-255)", text));
    }
    source = static_cast<LfibSource>(v);
  }
  return RouteKey(label, source);
}

std::string RouteKey::stringValue() const {
  if (source_ == kDefaultLfibSource) return fmt::format("{}", topLabel_);
  return fmt::format("{}/{}", topLabel_, source_);
}

}  // namespace Mpls
