#include "motion/septic_trajectory.hpp"

#include <cmath>
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

TEST(SepticTrajectory, IsTheSumOfPowersForDurationsOfAnyScale) {
  constexpr long double kSums[3][4] = {
      {35, -84, 70, -20}, {140, -420, 420, -140}, {420, -1680, 2100, -840}};
  for (const double T : {1e-40, 1e-3, 0.7, 300.0, 1e40}) {
    const auto sampled = ArmController::generate_septuple_trajectory({2.0}, {-1.1}, T, 50.0 / T);
    for (std::size_t k = 0; k < sampled.time.size(); ++k) {
      const long double s = static_cast<long double>(sampled.time[k]) / T;
      for (int series = 0; series < 3; ++series) {
        const long double scale = -3.1L / std::pow(static_cast<long double>(T), series);
        long double expected = series == 0 ? 2.0L : 0.0L;
        for (int n = 0; n < 4; ++n) {
          expected += scale * kSums[series][n] * std::pow(s, 4 + n - series);
        }
        const double value = sampled.joints[0][static_cast<std::size_t>(series)][k];
        EXPECT_LT(std::abs(value - expected), 1e-12L * std::abs(scale))
            << T << ' ' << k << ' ' << series;
      }
    }
    EXPECT_EQ(sampled.joints[0][0].front(), 2.0);
    EXPECT_EQ(sampled.joints[0][0].back(), -1.1);
  }
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
