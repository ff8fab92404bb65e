#pragma once

#include <algorithm>
#include <cmath>

namespace kelvara::description {

/// Whether no value is NaN or infinite.
template <typename Values>
bool all_finite(const Values& values) {
  return std::all_of(values.begin(), values.end(),
                     [](double value) { return std::isfinite(value); });
}

}  // namespace kelvara::description
