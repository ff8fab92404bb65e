#include "kinematics/turn_copies.hpp"

#include <cmath>

namespace kelvara::kinematics {
namespace {

constexpr double kTurn = 2.0 * 3.14159265358979323846;

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
    const double first = q[j] - kTurn * std::floor((q[j] - ranges[j].lower) / kTurn);
    for (double angle = first; angle <= ranges[j].upper; angle += kTurn) {
      for (std::size_t k = 0; k < known && angle != q[j] && copies.size() < kMaxTurnCopies; ++k) {
        copies.push_back(copies[k]);
        copies.back()[j] = angle;
      }
    }
  }
  return copies;
}

}  // namespace kelvara::kinematics
