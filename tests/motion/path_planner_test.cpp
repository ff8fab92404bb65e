#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/path_planning.hpp"

namespace kelvara {
namespace {

using ::testing::HasSubstr;
using PathPlanner = PathPlanning;

constexpr double kDeviation = 1e-6;  // m and rad; a hundredth of what is promised

/// The shortest duration of a path from rest to rest.
double shortest(double length, double speed, double acceleration, double jerk) {
  const auto ramp_s = [&](double v) {
    return v * jerk > acceleration * acceleration ? v / acceleration + acceleration / jerk
                                                  : 2.0 * std::sqrt(v / jerk);
  };
  double low = 0.0, high = speed;
  for (int k = 0; k < 60; ++k) {
    const double middle = 0.5 * (low + high);
    (middle * ramp_s(middle) <= length ? low : high) = middle;
  }
  return ramp_s(low) + length / low;
}

TEST_F(PathPlanner, KeepsTheToolOnRandomLinesWithinAllLimits) {
  int planned = 0;
  MotionLimits tool_alone = limits;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    tool_alone.velocity[i] = tool_alone.acceleration[i] = tool_alone.jerk[i] = 1e9;
  }
  const MotionPlanner without_joint_limits(model, tool_alone);
  for (int k = 0; planned < 200; ++k) {
    ASSERT_LT(k, 2000);
    const JointArray start = random_angles();
    const Frame from = tool(start);
    const double length = 0.16 + 0.14 * part(random);
    const Vector3 way = vector(length);
    const Vector3 turn = vector(0.8 * std::abs(part(random)));
    const Pose pose = moved(from, way, turn);
    Plan plan;
    try {
      plan = planner.plan_linear(start, {pose});
    } catch (const MotionError& error) {
      EXPECT_THAT(error.what(), HasSubstr("% of segment 1")) << k;
      continue;
    }
    ++planned;
    SCOPED_TRACE(k);
    expect_sound(plan, limits);
    EXPECT_EQ(plan.samples().front().q, start);
    along(plan, [&](const Frame& frame, double speed) {
      const Vector3 done = frame.position - from.position;
      const double u = dot(done, way) / (length * length);
      ASSERT_LT(norm(done - u * way), kDeviation);
      const auto rotation = motion::rotation_of(u * turn) * from.rotation;
      ASSERT_LT(norm(motion::rotation_between(rotation, frame.rotation)), kDeviation);
      ASSERT_LE(speed, limits.tool_speed * (1 + 1e-5));
    });
    const Frame end = tool(plan.samples().back().q);
    EXPECT_LT(norm(end.position - from.position - way), 1e-9);
    EXPECT_LT(
        norm(motion::rotation_between(motion::rotation_of(turn) * from.rotation, end.rotation)),
        1e-9);
    const double ratio = length / norm(turn);
    const double best =
        shortest(length, std::min(limits.tool_speed, limits.tool_angular_speed * ratio),
                 std::min(limits.tool_acceleration, limits.tool_angular_acceleration * ratio),
                 std::min(limits.tool_jerk, limits.tool_angular_jerk * ratio));
    EXPECT_GE(plan.duration_s(), best * (1 - 1e-9));
    const Plan of_tool = without_joint_limits.plan_linear(start, {pose});
    EXPECT_NEAR(of_tool.duration_s(), best, 1e-4 * best);
  }
}

TEST_F(PathPlanner, KeepsTheToolOnArcs) {
  int planned = 0;
  for (int k = 0; planned < 50; ++k) {
    ASSERT_LT(k, 2000);
    const JointArray start = random_angles();
    const Frame from = tool(start);
    const Vector3 out = vector(0.03 + 0.02 * part(random));
    const Vector3 side = kinematics::normalized(cross(out, vector(1.0)));
    const auto on_circle = [&](double angle) {
      return (1 - std::cos(angle)) * out + (std::sin(angle) * norm(out)) * side;
    };
    const double angle = 3.5 + 2.5 * part(random);
    Plan plan;
    try {
      plan = planner.plan_arc(start, moved(from, on_circle(0.4 * angle)),
                              moved(from, on_circle(angle), vector(0.4)));
    } catch (const MotionError&) {
      continue;
    }
    ++planned;
    SCOPED_TRACE(k);
    expect_sound(plan, limits);
    const Vector3 center = from.position + out;
    along(plan, [&](const Frame& frame, double speed) {
      const Vector3 radius = frame.position - center;
      ASSERT_NEAR(norm(radius), norm(out), kDeviation);
      ASSERT_NEAR(dot(radius, cross(out, side)), 0.0, kDeviation * norm(out));
      ASSERT_LE(speed * speed / norm(out), limits.tool_acceleration * (1 + 1e-5));
    });
    EXPECT_LT(norm(tool(plan.samples().back().q).position - from.position - on_circle(angle)),
              1e-9);
    EXPECT_NEAR(plan.report().tool_path_m, angle * norm(out), 1e-4);
  }
}

TEST_F(PathPlanner, SlowsDownOnlyWhereAJointNeedsIt) {
  const JointArray start{1.2, 1.7, -0.9, -0.7, 1.3, 0.6};  // the wrist passes close to axis 1
  const Plan plan = planner.plan_linear(start, {moved(tool(start), {0.0, -0.4, 0.0})});
  expect_sound(plan, limits);
  double before = 0.0, slowest = 1.0, after = 0.0;
  for (std::size_t k = 0; k < plan.samples().size(); ++k) {
    const double speed = tool_speed(plan.samples()[k]);
    const double at = static_cast<double>(k) / static_cast<double>(plan.samples().size());
    (at < 0.4 ? before : after) = std::max(at < 0.4 ? before : after, speed);
    slowest = at > 0.2 && at < 0.8 ? std::min(slowest, speed) : slowest;
  }
  EXPECT_NEAR(before, limits.tool_speed, 1e-6);
  EXPECT_NEAR(after, limits.tool_speed, 1e-6);
  EXPECT_LT(slowest, 0.1);
}

TEST_F(PathPlanner, LeavesASingularConfigurationThatTheToolDoesNotFeel) {
  const JointArray stretched{0.0, 0.5, -1.5707963267948966, 0.5, 0.0, 0.0};
  const Vector3 axis = tool(stretched).rotation.x;
  const Plan plan = planner.plan_linear(stretched, {moved(tool(stretched), {}, 0.5 * axis)});
  expect_sound(plan, limits);
  EXPECT_NEAR(plan.samples().back().q[5], 0.5, 1e-9);
}

TEST_F(PathPlanner, RoundsCornersAtSpeedWithinTheirBlend) {
  const Frame from = tool({});
  const std::vector<Vector3> corners{
      {0.0, 0.0, 0.0}, {-0.1, 0.0, 0.0}, {-0.1, 0.15, 0.0}, {-0.1, 0.15, -0.2}};
  constexpr double kBlend = 0.03;
  const Plan plan = planner.plan_path(
      {}, {PathSegment::linear(moved(from, corners[1], {0.0, 0.0, 0.3}), kBlend),
           PathSegment::linear(moved(from, corners[2]), kBlend),
           PathSegment::linear(moved(from, corners[3], {0.2, 0.0, 0.0}), kBlend)});
  expect_sound(plan, limits);
  std::vector<double> nearest(4, 1.0), slowest(4, 1.0);
  along(plan, [&](const Frame& frame, double speed) {
    const Vector3 p = frame.position - from.position;
    bool is_rounding = false;
    double deviation = 1.0;
    for (std::size_t k = 1; k < 4; ++k) {
      const Vector3 way = corners[k] - corners[k - 1];
      const double u = std::clamp(dot(p - corners[k - 1], way) / dot(way, way), 0.0, 1.0);
      deviation = std::min(deviation, norm(p - corners[k - 1] - u * way));
      const double distance = norm(p - corners[k]);
      nearest[k] = std::min(nearest[k], distance);
      if (k < 3 && distance < kBlend) {
        is_rounding = true;
        slowest[k] = std::min(slowest[k], speed);
      }
    }
    ASSERT_LT(deviation, is_rounding ? kBlend : kDeviation);
  });
  for (const std::size_t k : {1, 2}) {
    EXPECT_GT(nearest[k], 1e-3);
    EXPECT_LT(nearest[k], kBlend);
    EXPECT_GT(slowest[k], 0.05);
  }
  EXPECT_LT(norm(tool(plan.samples().back().q).position - from.position - corners[3]), 1e-9);
}

TEST_F(PathPlanner, JoinsJointSegmentsWithLines) {
  const JointArray middle{0.4, 0.2, -0.3, 0.1, 0.2, 0.3};
  const JointArray corner{0.6, 0.1, -0.3, 0.3, 0.2, 0.0};
  const Pose pose = moved(tool(corner), {0.0, -0.1, 0.0});
  const std::vector<PathSegment> segments{PathSegment::joint(middle, 0.1),
                                          PathSegment::joint(corner), PathSegment::linear(pose),
                                          PathSegment::joint({})};
  const Plan plan = planner.plan_path({}, segments);
  expect_sound(plan, limits);
  EXPECT_EQ(plan.samples().back().q, JointArray{});
  double to_middle = 1.0, to_corner = 1.0, to_pose = 1.0, speed = 0.0;
  for (double t = 0.0; t < plan.duration_s(); t += 1e-4) {
    const PlanSample sample = plan.at(t);
    const auto distance = [&](const JointArray& q) {
      double sum = 0.0;
      for (std::size_t i = 0; i < kJointCount; ++i) {
        sum += (sample.q[i] - q[i]) * (sample.q[i] - q[i]);
      }
      return std::sqrt(sum);
    };
    if (distance(middle) < to_middle) {
      to_middle = distance(middle);
      speed = std::abs(sample.dq[0]);
    }
    to_corner = std::min(to_corner, distance(corner));
    to_pose =
        std::min(to_pose, norm(tool(sample.q).position - kinematics::frame_of(pose).position));
  }
  EXPECT_LT(to_middle, 0.1);
  EXPECT_GT(speed, 0.1);
  EXPECT_LT(to_corner, 1e-6);
  EXPECT_LT(to_pose, 1e-6);
  std::vector<PathSegment> mixed = segments;
  mixed[0].blend = 1e-3;  // passed within a sample's period
  expect_sound(planner.plan_path({}, mixed), limits);
  mixed[1].blend = 0.01;
  EXPECT_THROW(planner.plan_path({}, mixed), std::invalid_argument);
}

TEST_F(PathPlanner, TakesTheRequestedDurationOrNamesTheShortest) {
  const Pose pose = moved(tool({}), {-0.1, 0.1, 0.0});
  const Plan fastest = planner.plan_linear({}, {pose});
  const Plan slow = planner.plan_linear({}, {pose}, {3.0});
  EXPECT_EQ(slow.duration_s(), 3.0);
  expect_sound(slow, limits);
  EXPECT_NEAR(slow.report().peak_tool_speed / fastest.report().peak_tool_speed,
              fastest.duration_s() / 3.0, 1e-3);
  try {
    planner.plan_linear({}, {pose}, {0.9 * fastest.duration_s()});
    ADD_FAILURE() << "not refused";
  } catch (const MotionError& error) {
    EXPECT_EQ(error.code(), MotionErrorCode::kDurationTooShort);
    EXPECT_EQ(planner.plan_linear({}, {pose}, {error.time_s()}).duration_s(), fastest.duration_s());
  }
}

TEST_F(PathPlanner, StaysWhereNothingMoves) {
  const Plan plan = planner.plan_linear({}, {moved(tool({}), {})});
  EXPECT_EQ(plan.duration_s(), 0.0);
  EXPECT_EQ(plan.samples().size(), 1u);
  EXPECT_EQ(planner.plan_path({}, {}, {0.1}).samples().size(), 41u);
}

}  // namespace
}  // namespace kelvara
