#pragma once

#include <array>
#include <cstddef>

namespace kelvara::motion {

/// A value along a curve with its first and second derivative by the curve's parameter.
template <typename Value>
struct Rates {
  Value value{}, first{}, second{};
};

/// A polynomial of the fifth degree, c0 + c1 s + ... + c5 s⁵, of numbers or vectors.
template <typename Value>
struct Quintic {
  std::array<Value, 6> c{};

  Rates<Value> at(double s) const {
    Rates<Value> rates{c[5], {}, {}};
    for (std::size_t k = 5; k-- > 0;) {
      rates.second = rates.first + s * rates.second;  // half the second derivative
      rates.first = rates.value + s * rates.first;
      rates.value = c[k] + s * rates.value;
    }
    rates.second = 2.0 * rates.second;
    return rates;
  }

  Value third(double s) const { return 6.0 * c[3] + s * (24.0 * c[4] + (60.0 * s) * c[5]); }

  /// Meets value and derivatives at both ends; `h`: the parameter at the end.
  static Quintic between(const Rates<Value>& begin, const Rates<Value>& end, double h) {
    const Value dp = end.value - begin.value - h * (begin.first + (0.5 * h) * begin.second);
    const Value dv = h * (end.first - begin.first - h * begin.second);
    const Value da = (h * h) * (end.second - begin.second);
    const double h3 = h * h * h;
    return {{begin.value, begin.first, 0.5 * begin.second,
             (1.0 / h3) * (10.0 * dp - 4.0 * dv + 0.5 * da),
             (1.0 / (h3 * h)) * (-15.0 * dp + 7.0 * dv - da),
             (1.0 / (h3 * h * h)) * (6.0 * dp - 3.0 * dv + 0.5 * da)}};
  }
};

}  // namespace kelvara::motion
