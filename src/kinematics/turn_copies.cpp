#include "kinematics/turn_copies.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::kinematics {
namespace {

constexpr double kTurn = 2.0 * 3.14159265358979323846;
constexpr double kMaxTurns = 1000.0;  // limits can be as wide as a double

/// The full turns, towards zero, that lead from an angle to a limit.
int turns_to(double limit, double angle) {
  return static_cast<int>(std::clamp(std::trunc((limit - angle) / kTurn), -kMaxTurns, kMaxTurns));
}

bool turns(const JointRange& range) {
  return !range.prismatic && std::isfinite(range.lower) && std::isfinite(range.upper);
}

}  // namespace

std::vector<JointArray> turn_copies(const JointRanges& ranges, const JointArray& q) {
  std::vector<JointArray> copies{q};
  for (std::size_t j = 0; j < kJointCount; ++j) {
    if (!turns(ranges[j])) {
      continue;
    }
    const std::size_t known = copies.size();
    const int least = turns_to(ranges[j].lower, q[j]);
    const int most = turns_to(ranges[j].upper, q[j]);
    for (int turn = least; turn <= most; ++turn) {
      for (std::size_t k = 0; k < known && turn != 0 && copies.size() < kMaxTurnCopies; ++k) {
        copies.push_back(copies[k]);
        copies.back()[j] = q[j] + turn * kTurn;
      }
    }
  }
  return copies;
}

}  // namespace kelvara::kinematics
