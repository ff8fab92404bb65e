#include "motion/waypoint_planner.hpp"

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvara::motion {
namespace {

struct WaypointPlanner : ::testing::Test {
  WaypointPlanner() {
    limits.max_vel_limits.fill(2.0);
    limits.max_acc_limits.fill(8.0);
    limits.max_jerk_limits.fill(80.0);
  }

  static JointArray all(double angle) {
    JointArray q;
    q.fill(angle);
    return q;
  }

  static double distance(const JointArray& a, const JointArray& b) {
    double largest = 0.0;
    for (std::size_t j = 0; j < kJointCount; ++j) {
      largest = std::max(largest, std::abs(a[j] - b[j]));
    }
    return largest;
  }

  std::vector<JointArray> random_points(std::size_t count) {
    std::uniform_real_distribution<double> angle(-1.0, 1.0);
    std::vector<JointArray> points(count);
    for (JointArray& point : points) {
      for (double& q : point) {
        q = angle(random);
      }
    }
    return points;
  }

  description::JointTrajectoryConfig limits;
  std::mt19937 random{3};
};

TEST_F(WaypointPlanner, PassesEveryPointSmoothlyWithinTheLimits) {
  for (const double speed : {1.0, 0.3}) {
    const auto points = random_points(20);
    const WaypointPlan plan = plan_waypoints(all(0.0), points, limits, {.speed = speed});
    const auto& samples = plan.samples;
    EXPECT_EQ(samples.front().q, all(0.0));
    EXPECT_EQ(samples.front().dq, JointArray{});
    EXPECT_NEAR(samples.back().q[3], points.back()[3], 1e-12);
    EXPECT_NEAR(samples.back().dq[3], 0.0, 1e-9);
    std::size_t passed = 0;
    bool at_point = true;
    for (std::size_t k = 0; k < samples.size(); ++k) {
      for (std::size_t j = 0; j < kJointCount; ++j) {
        ASSERT_LE(std::abs(samples[k].dq[j]), 2.0 * speed * 1.001) << "sample " << k;
        ASSERT_LE(std::abs(samples[k].ddq[j]), 8.0 * 1.001) << "sample " << k;
        if (!at_point) {  // inside a segment the rates are those of the positions
          const double step = (samples[k].q[j] - samples[k - 1].q[j]) * 400.0;
          ASSERT_NEAR(step, (samples[k].dq[j] + samples[k - 1].dq[j]) / 2, 2e-4) << k;
        }
      }
      at_point = passed < points.size() && distance(samples[k].q, points[passed]) < 1e-12;
      passed += at_point ? 1 : 0;
    }
    EXPECT_EQ(passed, points.size());
    EXPECT_TRUE(plan.limit_reports.empty());
  }
}

TEST_F(WaypointPlanner, StopsAJointWhereItTurnsAndNotWhereItGoesOn) {
  const WaypointPlan plan =
      plan_waypoints(all(0.0), {{0.5, 0.5, 0, 0, 0, 0}, {1.0, 0.0, 0, 0, 0, 0}}, limits, {});
  for (const auto& sample : plan.samples) {
    if (std::abs(sample.q[0] - 0.5) < 1e-9) {
      EXPECT_GT(sample.dq[0], 0.1);
      EXPECT_NEAR(sample.dq[1], 0.0, 1e-9);
    }
  }
}

TEST_F(WaypointPlanner, DropsRepeatsDownToASingleSample) {
  const auto near = all(0.2 + 1e-10);
  const WaypointPlan none = plan_waypoints(all(0.2), {near, near}, {}, {});
  ASSERT_EQ(none.samples.size(), 1U) << "and the limits, all zero, are not looked at";
  EXPECT_EQ(none.samples[0].q, all(0.2));
  const auto twice = plan_waypoints(all(0.0), {all(0.5), all(0.5), all(1.0)}, limits, {});
  const auto once = plan_waypoints(all(0.0), {all(0.5), all(1.0)}, limits, {});
  EXPECT_EQ(twice.samples.size(), once.samples.size());
}

TEST_F(WaypointPlanner, KeepsTheRequestedTimeAndReportsTheJointsThatItOvertaxes) {
  const auto points = random_points(7);
  const auto slow = plan_waypoints(all(0.0), points, limits, {.time_s = 30.0});
  EXPECT_EQ(slow.samples.size(), 12001U);
  EXPECT_TRUE(slow.limit_reports.empty());
  const auto fast = plan_waypoints(all(0.0), {{1, 0, 0, 0, 0, 0.5}}, limits, {.time_s = 0.5});
  EXPECT_EQ(fast.samples.size(), 201U);
  ASSERT_EQ(fast.limit_reports.size(), 2U);
  EXPECT_EQ(fast.limit_reports[0],
            "[move_joint_waypoints] requested time_sec=0.5 exceeds joint 1 trajectory limits: vmax "
            "3.75/2, amax 23.0933/8, jmax 480/80");
  const auto shortest = plan_waypoints(all(0.0), points, limits, {.time_s = 0.001});
  EXPECT_EQ(shortest.samples.size(), points.size() + 1) << "a step for each segment";
  EXPECT_NEAR(shortest.samples.back().q[2], points.back()[2], 1e-12);
}

TEST_F(WaypointPlanner, TakesTenThousandPointsAndRefusesWhatNoMemoryHolds) {
  const auto plan = plan_waypoints(all(0.0), random_points(10'000), limits, {.control_hz = 50});
  EXPECT_GT(plan.samples.size(), 100'000U);
  EXPECT_EQ(plan.samples.size(), plan.samples.capacity());
  EXPECT_THROW(plan_waypoints(all(0.0), {all(1.0)}, limits, {.time_s = 1e300}), std::length_error);
  EXPECT_THROW(plan_waypoints(all(0.0), {all(1.0)}, limits,
                              {.control_hz = std::numeric_limits<double>::quiet_NaN()}),
               std::length_error);
  const double seconds = kMaxPlanBytes / (sizeof(WaypointTrajectorySample) * 400.0);
  EXPECT_THROW(plan_waypoints(all(0.0), {all(1.0)}, limits, {.time_s = seconds}),
               std::length_error);
  EXPECT_THROW(
      plan_waypoints(all(0.0), {all(1.0), all(0.0), all(1.0), all(0.0)}, limits, {.speed = 1e-4}),
      std::length_error)
      << "the segments together";
  limits.max_jerk_limits[4] = 0.0;
  EXPECT_THROW(plan_waypoints(all(0.0), {all(1.0)}, limits, {}), std::runtime_error);
}

}  // namespace
}  // namespace kelvara::motion
