#pragma once

#include <optional>
#include <string_view>

namespace kelvara::description {

/// The words that a file format has for infinity and NaN.
enum class NonFinite {
  kNone,
  kYaml,  // ".inf", ".nan", with their signs and capitals
  kUrdf,  // "inf", "infinity", "nan", with a sign, in any capitals
};

/// Reads a decimal number. The whole text must be numeric, but for white space around it; neither
/// the C locale nor the global C++ locale matters. Any thread.
/// @return Nothing for any other text, and for a number that a double cannot hold.
std::optional<double> parse_number(std::string_view text, NonFinite words);

}  // namespace kelvara::description
