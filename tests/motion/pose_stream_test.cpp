#include "motion/pose_stream.hpp"

#include <cmath>

#include <gtest/gtest.h>

namespace kelvara::motion {
namespace {

TEST(PoseStream, FiltersLimitsAndDampsReversedVelocities) {
  PoseStream stream;
  TimePoint now{std::chrono::hours(1)};
  const auto step = [&](double angle, int milliseconds) {
    now += std::chrono::milliseconds(milliseconds);
    JointArray q{};
    q[1] = q[4] = angle;
    return stream.step(q, now);
  };
  EXPECT_EQ(step(0.5, 0), JointArray{}) << "nothing to compare with yet";
  // 0.01 rad in 5 ms is 2 rad/s; a tenth of it is new; joint 2 may change by 18 rad/s² · 5 ms.
  const JointArray second = step(0.51, 5);
  EXPECT_NEAR(second[4], 0.2, 1e-12);
  EXPECT_NEAR(second[1], 0.09, 1e-12);
  const JointArray third = step(0.52, 5);
  EXPECT_NEAR(third[4], 0.9 * 0.2 + 0.2, 1e-12);
  // Turning round cuts the filtered velocity to a fifth first.
  const JointArray back = step(0.51, 5);
  EXPECT_NEAR(back[4], 0.9 * (0.2 * third[4]) - 0.2, 1e-12);
  // A pause counts as 7.5 ms.
  const double before = stream.raw_pose_prev_dq[4];
  EXPECT_NEAR(step(0.51 - 0.0075, 1000)[4], 0.9 * before - 0.1, 1e-12);
  for (int k = 0; k < 1000; ++k) {
    EXPECT_LE(std::abs(step(k % 2 == 0 ? 0.51 : 0.51 + k * 0.1, 5)[4]), 20.9);
  }
}

}  // namespace
}  // namespace kelvara::motion
