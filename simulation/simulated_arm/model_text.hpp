#pragma once

#include <iomanip>
#include <sstream>
#include <string>

namespace kelvara::simulation {

inline constexpr double kPointInertia = 1e-9;  // kg·m²; MuJoCo requires more than 0

/// The values as MuJoCo's format lists them, exactly.
template <typename Values>
std::string numbers(const Values& values) {
  std::ostringstream text;
  text << std::setprecision(17);
  for (const double value : values) {
    text << value << ' ';
  }
  return text.str();
}

}  // namespace kelvara::simulation
