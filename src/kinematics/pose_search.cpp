#include "kinematics/pose_search.hpp"

#include <algorithm>

#include "kinematics/pose_newton.hpp"

namespace kelvara::kinematics {
namespace {

constexpr int kMaxSeeds = 600;
constexpr int kSeedsWithoutNews = 200;
constexpr int kMaxSteps = 60;
constexpr double kLimitRounding = 1e-9;  // rad
constexpr double kSingularPivot = 1e-12;
constexpr double kPi = 3.14159265358979323846;
constexpr double kUnlimitedTravel = 1.0;  // m, of a prismatic joint without limits
constexpr std::array<int, kJointCount> kPrimes{2, 3, 5, 7, 11, 13};

/// The digits of `index` in the base, mirrored at the point: van der Corput's sequence in [0, 1).
double mirrored(int index, int base) {
  double value = 0.0;
  double digit = 1.0;
  for (; index > 0; index /= base) {
    digit /= base;
    value += digit * (index % base);
  }
  return value;
}

/// The seed of an index: Halton's sequence, scaled to the ranges.
JointArray seed_of(int index, const JointRanges& ranges) {
  JointArray q;
  for (std::size_t j = 0; j < kJointCount; ++j) {
    const double half = ranges[j].prismatic ? kUnlimitedTravel : kPi;
    const double lower = std::max(ranges[j].lower, std::min(-half, ranges[j].upper - half));
    const double upper = std::min(ranges[j].upper, std::max(half, ranges[j].lower + half));
    q[j] = lower + (upper - lower) * mirrored(index, kPrimes[j]);
  }
  return q;
}

}  // namespace

PoseSolutions search_pose(const SixJointChain& chain, const Frame& target,
                          const JointRanges& ranges, const JointArray& hint) {
  PoseSolutions found;
  int without_news = 0;
  for (int k = 0; k < kMaxSeeds && without_news < kSeedsWithoutNews; ++k) {
    JointArray q = k == 0 ? hint : seed_of(k, ranges);
    const bool news = refine(chain, target, q, kMaxSteps) < kReachedError &&
                      fit(ranges, q, kLimitRounding) &&
                      found.add(q, is_singular(chain, q, kSingularPivot));
    without_news = news ? 0 : without_news + 1;
  }
  return found;
}

}  // namespace kelvara::kinematics
