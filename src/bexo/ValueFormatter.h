#pragma once

// {fmt} support shared by the network value types. A value writes its own text through
// `formatTo(fmt::appender)` and an enumeration names itself through `stringValue(e)`; these
// bases turn that into a formatter that also honours width and alignment ("{:>18}"), which
// the tables printed by the tools rely on. The text is built in a stack buffer, so tracing a
// value does not allocate.

#include <fmt/format.h>

#include <string_view>

namespace Bexo {

template <typename T>
struct ValueFormatter : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const T& value, FormatContext& ctx) const {
    fmt::memory_buffer text;
    value.formatTo(fmt::appender(text));
    return fmt::formatter<std::string_view>::format(std::string_view(text.data(), text.size()),
                                                    ctx);
  }
};

template <typename E>
struct EnumFormatter : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(E value, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(stringValue(value), ctx);
  }
};

}  // namespace Bexo
