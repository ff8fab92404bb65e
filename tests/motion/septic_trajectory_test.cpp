#include "motion/septic_trajectory.hpp"

#include <limits>

#include <gtest/gtest.h>

#include "kelvara/arm_controller.hpp"
#include "support/outcomes.hpp"

namespace {

TEST(SepticTrajectory, SamplesAMoveFromRestToRest) {
  const auto whole = ArmController::generate_septuple_trajectory({0.5}, {1.5}, 1.0, 200.0);
  ASSERT_EQ(whole.time.size(), 201U);
  EXPECT_EQ(whole.time.back(), 1.0);
  ASSERT_EQ(whole.joints.size(), 6U);
  const auto& series = whole.joints[5];
  EXPECT_NEAR(series[0][100], 1.0, 1e-12);
  EXPECT_NEAR(series[1][100], 2.1875, 1e-12);
  EXPECT_EQ(series[0].back(), 1.5);
  EXPECT_EQ(series[1].back(), 0.0);
  for (std::size_t k = 1; k < 200; ++k) {
    const double slope = (series[0][k + 1] - series[0][k - 1]) / 0.01;
    const double bend = (series[1][k + 1] - series[1][k - 1]) / 0.01;
    EXPECT_NEAR(series[1][k], slope, 5e-4) << k;
    EXPECT_NEAR(series[2][k], bend, 5e-3) << k;
  }
  const auto shortest = ArmController::generate_septuple_trajectory({0, 1, 2, 3, 4, 5},
                                                                    {0, 0, 0, 0, 0, 0}, 0.001, 100);
  EXPECT_EQ(shortest.time, (std::vector<double>{0.0, 0.001}));
  EXPECT_EQ(shortest.joints[3][0], (std::vector<double>{3.0, 0.0}));
}

TEST(SepticTrajectory, RefusesBadArgumentsInOrder) {
  const auto error = [](std::size_t starts, std::size_t ends, double tf, double freq) {
    return error_of([&] {
      ArmController::generate_septuple_trajectory(std::vector<double>(starts),
                                                  std::vector<double>(ends), tf, freq);
    });
  };
  EXPECT_EQ(error(6, 1, 0, 0), "invalid argument: q_start/q_end length must be num_joints or 1");
  EXPECT_EQ(error(1, 1, 0, 0), "invalid argument: tf must be positive");
  EXPECT_EQ(error(6, 6, 1, 0), "invalid argument: freq must be positive");
  EXPECT_EQ(error(6, 6, 1e300, 1e300), "length error: tf and freq ask for too many samples");
  EXPECT_EQ(error(1, 1, 2e4, 400), "length error: tf and freq ask for too many samples");
  EXPECT_EQ(error(6, 6, std::numeric_limits<double>::quiet_NaN(), 100),
            "length error: tf and freq ask for too many samples");
  EXPECT_EQ(error(6, 6, 1e-50, 1), "tf or freq is too extreme to compute with");
  EXPECT_EQ(error(6, 6, 1, 1e-310), "tf or freq is too extreme to compute with");
}

}  // namespace
