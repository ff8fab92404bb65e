#include <stdexcept>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kinematics/inverse_kinematics.hpp"
#include "support/path_planning.hpp"

namespace kelvara {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

struct PathRefusal : PathPlanning {
  MotionError refusal(const JointArray& start, const std::vector<Pose>& poses) const {
    try {
      planner.plan_linear(start, poses);
    } catch (const MotionError& error) {
      return error;
    }
    throw std::logic_error("not refused");
  }
};

TEST_F(PathRefusal, NamesThePlaceWhereALineLeavesTheReach) {
  const MotionError error =
      refusal({}, {moved(tool({}), {0.0, 0.0, -0.1}), moved(tool({}), {0.6, 0.0, -0.1})});
  EXPECT_EQ(error.code(), MotionErrorCode::kOutOfReach);
  EXPECT_THAT(error.what(), HasSubstr("at 40 % of segment 2, 0.2")) << error.what();
}

TEST_F(PathRefusal, RefusesPosesWhoseDistanceOverflows) {
  const MotionError error = refusal({}, {Pose{{1e160, 0.0, 0.0}, {}}});
  EXPECT_EQ(error.code(), MotionErrorCode::kOutOfReach);
}

TEST_F(PathRefusal, NamesTheJointThatALineNeedsBeyondItsLimit) {
  const JointArray start{0.0, 0.0, 0.0, 1.0, 0.0, 0.0};
  const MotionError error = refusal(start, {moved(tool(start), {-0.5, 0.0, 0.0})});
  EXPECT_EQ(error.code(), MotionErrorCode::kJointLimit) << error.what();
  EXPECT_EQ(error.joint(), 4) << error.what();
}

TEST_F(PathRefusal, RefusesALineWhoseEndAnotherConfigurationReaches) {
  const JointArray start{0.0, 0.0, 0.0, 0.0, 0.0, 2.5};
  const MotionError error = refusal(start, {moved(tool(start), {}, {1.0, 0.0, 0.0})});
  EXPECT_EQ(error.code(), MotionErrorCode::kBranchChange);
  EXPECT_EQ(error.joint(), 6);
  EXPECT_THAT(error.what(),
              AllOf(HasSubstr("at 40 % of segment 1, 0.4"), HasSubstr("0.6 rad beyond")));
}

TEST_F(PathRefusal, RefusesALineThroughASingularityAndPassesBesideIt) {
  // The tool hangs down and passes axis 1 at the distance x: joint 1 turns by half a turn.
  const auto line = [&](double x) {
    const Pose from{{x, -0.1, -0.15}, {0.0, 1.5707963267948966, 0.0}};
    Pose to = from;
    to.position[1] = 0.1;
    const JointArray start =
        kinematics::inverse_kinematics(model).solve(kinematics::frame_of(from), {-1.5, -1, 1, 1.5});
    return std::pair(start, to);
  };
  const auto [start, to] = line(1e-4);
  const MotionError error = refusal(start, {to});
  EXPECT_EQ(error.code(), MotionErrorCode::kSingularity) << error.what();
  EXPECT_THAT(error.what(), HasSubstr("at 50 % of segment 1, 0.09"));
  const auto [start_beside, to_beside] = line(0.02);
  expect_sound(planner.plan_linear(start_beside, {to_beside}), limits);
}

}  // namespace
}  // namespace kelvara
