#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "description/joint_array.hpp"

namespace kelvara::kinematics {

/// The distinct solutions of a pose. Eight for the closed form, up to 16 for any chain of six
/// revolute joints; more are left out, which only a continuum can lead to.
struct PoseSolutions {
  static constexpr int kCapacity = 16;
  static constexpr double kSame = 1e-6;  // rad, in every joint

  std::array<JointArray, kCapacity> q{};
  std::array<bool, kCapacity> singular{};  // represents a continuum
  int count = 0;

  bool contains(const JointArray& candidate) const {
    return std::any_of(q.begin(), q.begin() + count, [&](const JointArray& known) {
      return std::equal(known.begin(), known.end(), candidate.begin(),
                        [](double a, double b) { return std::abs(a - b) < kSame; });
    });
  }

  /// Adds a solution unless it is known or there is no room. Returns whether it did.
  bool add(const JointArray& candidate, bool is_singular) {
    if (count == kCapacity || contains(candidate)) {
      return false;
    }
    q[count] = candidate;
    singular[count] = is_singular;
    ++count;
    return true;
  }
};

}  // namespace kelvara::kinematics
