#include "controller/torque_monitor.hpp"

#include <utility>

#include <gtest/gtest.h>

namespace kelvara::controller {
namespace {

constexpr double kPass = 0.020;

/// Steps the monitor for some seconds; the time of the first warning and of the stop, -1 for none.
std::pair<double, double> watch_for(TorqueMonitor& monitor, double seconds,
                                    const JointArray& torque) {
  std::pair<double, double> first{-1.0, -1.0};
  for (int pass = 1; pass * kPass <= seconds + 1e-9; ++pass) {
    for (const auto& finding : monitor.step(kPass, torque)) {
      double& time = finding.stop ? first.second : first.first;
      time = time < 0.0 ? pass * kPass : time;
    }
  }
  return first;
}

TEST(TorqueMonitor, WarnsAfterTwoSecondsAndStopsAfterSixAboveTheThreshold) {
  const JointArray thresholds{20, 20, 20, 8, 6, 6};
  for (std::size_t joint = 0; joint < 6; ++joint) {
    for (const double sign : {1.0, -1.0}) {
      TorqueMonitor monitor;
      JointArray torque{};
      torque[joint] = sign * thresholds[joint];
      EXPECT_EQ(watch_for(monitor, 8.0, torque), std::pair(-1.0, -1.0))
          << "exactly at the threshold";
      torque[joint] *= 1.01;
      const auto [warned, stopped] = watch_for(monitor, 8.0, torque);
      // The average takes up to a window to rise above the threshold.
      EXPECT_NEAR(warned, 2.0, 0.22) << "joint " << joint + 1;
      EXPECT_NEAR(stopped, 6.0, 0.22) << "joint " << joint + 1;
    }
  }
}

TEST(TorqueMonitor, StartsOverWhenTheAverageDropsOnceAndIgnoresShortSpikes) {
  TorqueMonitor monitor;
  const JointArray high{0, 25, 0, 0, 0, 0};
  EXPECT_EQ(watch_for(monitor, 5.9, high).second, -1.0);
  monitor.step(kPass, {0, -200, 0, 0, 0, 0});  // one pass that brings the average down
  const auto [warned, stopped] = watch_for(monitor, 5.9, high);
  EXPECT_GT(warned, 1.9);
  EXPECT_EQ(stopped, -1.0);
  TorqueMonitor spikes;
  for (int k = 0; k < 100; ++k) {
    EXPECT_EQ(watch_for(spikes, 0.1, high).first, -1.0);
    EXPECT_EQ(watch_for(spikes, 0.1, {}).first, -1.0);
  }
}

TEST(TorqueMonitor, EndsThePassAtTheFirstJointThatCallsForAStop) {
  TorqueMonitor monitor;
  const JointArray high{25, 25, 0, 0, 0, 0};
  watch_for(monitor, 5.99, high);
  const auto& findings = monitor.step(0.1, high);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].joint, 0U);
  EXPECT_TRUE(findings[0].stop);
}

}  // namespace
}  // namespace kelvara::controller
