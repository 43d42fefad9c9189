#pragma once
// Value types and enumerations.
//
// A value type is a plain struct with ==, a hash, stringValue() and operator<<;
// "empty" means equal to a default-constructed value. Enumerations declare
// their names once with KIV_ENUM_NAMES and get stringValue, a parse function
// (`fooInstance("text")`) and stream output from it. Anything with a
// stringValue can be formatted with {fmt}.

#include <fmt/format.h>

#include <array>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace Kiv {

template <class T>
bool isEmpty(const T& v) {
   return v == T{};
}

template <class E, size_t N>
E enumInstance(const std::array<std::string_view, N>& names, std::string_view text,
               std::string_view typeName) {
   for (size_t i = 0; i < N; ++i)
      if (names[i] == text) return static_cast<E>(i);
   throw std::invalid_argument(fmt::format("bad {} '{}'", typeName, text));
}

template <class E, size_t N>
std::string_view enumName(const std::array<std::string_view, N>& names, E e) {
   auto i = static_cast<size_t>(e);
   return i < N ? names[i] : std::string_view("<invalid>");
}

template <class T>
concept HasStringValueMember = requires(const T& t) {
   { t.stringValue() } -> std::convertible_to<std::string>;
};
template <class T>
concept HasStringValueFree = requires(const T& t) {
   { stringValue(t) } -> std::convertible_to<std::string_view>;
};

}  // namespace Kiv

// Enumerators must be 0..N-1 in declaration order.
//   enum class MplsSmInputStatus { mplsSmInputUnknown, ... };
//   KIV_ENUM_NAMES(MplsSmInputStatus, mplsSmInputStatusInstance, "mplsSmInputUnknown", ...)
#define KIV_ENUM_NAMES(Type, instanceFn, ...)                                              \
   inline constexpr std::array<std::string_view,                                           \
                               std::initializer_list<const char*>{__VA_ARGS__}.size()>     \
       Type##Names_{__VA_ARGS__};                                                          \
   inline std::string_view stringValue(Type e) { return ::Kiv::enumName(Type##Names_, e); } \
   inline Type instanceFn(std::string_view text) {                                         \
      return ::Kiv::enumInstance<Type>(Type##Names_, text, #Type);                          \
   }                                                                                       \
   inline std::ostream& operator<<(std::ostream& os, Type e) { return os << stringValue(e); }

template <class T>
   requires(Kiv::HasStringValueMember<T> || Kiv::HasStringValueFree<T>)
struct fmt::formatter<T> : fmt::formatter<std::string_view> {
   template <class Ctx>
   auto format(const T& v, Ctx& ctx) const {
      if constexpr (Kiv::HasStringValueMember<T>) {
         std::string s = v.stringValue();
         return fmt::formatter<std::string_view>::format(s, ctx);
      } else {
         return fmt::formatter<std::string_view>::format(stringValue(v), ctx);
      }
   }
};
