#pragma once

#include <algorithm>
#include <cmath>

namespace kelvara::controller {

/// Whether all of these doubles are numbers, and none is infinite.
template <typename Values>
bool all_finite(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](double value) { return std::isfinite(value); });
}

}  // namespace kelvara::controller
