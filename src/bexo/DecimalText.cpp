#include "bexo/DecimalText.h"

#include <charconv>

namespace Bexo {

bool parseDecimal(std::string_view text, std::uint32_t max, std::uint32_t& value) {
  if (text.empty() || text.front() < '0' || text.front() > '9') {
    return false;
  }
  if (text.size() > 1 && text.front() == '0') {
    return false;
  }
  std::uint32_t parsed = 0;
  const char* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, parsed);
  if (error != std::errc() || stop != end || parsed > max) {
    return false;
  }
  value = parsed;
  return true;
}

}  // namespace Bexo
