#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace kelvara::motion {

/// A value and its derivative.
struct Slope {
  double value;
  double derivative;
};

/// Finds the root of an increasing function between `low` and `high` to rounding: Newton's method,
/// and bisection where that leaves the bracket.
/// @param function Returns a `Slope`.
template <typename Function>
double find_root(Function function, double low, double high, double guess) {
  constexpr int kMaxIterations = 100;
  double x = std::clamp(guess, low, high);
  for (int i = 0; i < kMaxIterations; ++i) {
    const Slope at = function(x);
    (at.value > 0.0 ? high : low) = x;
    double next = x - at.value / at.derivative;
    if (!(next >= low && next <= high)) {  // or NaN
      next = 0.5 * (low + high);
    }
    if (std::abs(next - x) <= 4.0 * std::numeric_limits<double>::epsilon() * x) {
      return next;
    }
    x = next;
  }
  return x;
}

}  // namespace kelvara::motion
