#include "kinematics/inverse_kinematics.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion_error.hpp"
#include "kinematics/pose_newton.hpp"
#include "kinematics/pose_search.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"

namespace kelvara::kinematics {
namespace {

using ::testing::HasSubstr;
using Method = InverseKinematics::Method;
using Edit = std::function<void(std::vector<description::UrdfJoint>&)>;

/// The solver of the arm, its description changed.
InverseKinematics solver_of(const Edit& edit = [](auto&) {}) {
  description::UrdfDescription urdf = description::load_urdf("config/BrimloV2.SLDASM.urdf");
  std::erase_if(urdf.joints, [](const auto& joint) { return joint.type == "fixed"; });
  edit(urdf.joints);
  return InverseKinematics(*SixJointChain::from(
      urdf, description::load_kinematics_config("config/robot_kinematics.yaml")));
}

void widen_limits(std::vector<description::UrdfJoint>& joints) {
  for (auto& joint : joints) {
    joint.lower = -3.1, joint.upper = 3.1;
  }
}

/// Lateral offsets, twisted axes, axis 3 reversed; axes 2, 3, 4 stay parallel, 5 and 6 still meet.
void add_offsets(std::vector<description::UrdfJoint>& joints) {
  widen_limits(joints);
  joints[1].origin_xyz = {0.03, 0.04, 0.045}, joints[1].origin_rpy = {0.3, 0.0, 0.0};
  joints[2].origin_xyz = {0.05, 0.03, 0.265}, joints[2].axis = {0.0, -1.0, 0.0};
  joints[4].origin_xyz = {0.08, 0.02, 0.03}, joints[4].origin_rpy = {0.5, 0.2, 0.1};
  joints[5].axis = {0.8, 0.0, 0.6};
}

Edit disturbed_by(double metres, double radians, unsigned seed) {
  return [=](std::vector<description::UrdfJoint>& joints) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (auto& joint : joints) {
      for (std::size_t i = 0; i < 3; ++i) {
        joint.origin_xyz[i] += metres * unit(random);
        joint.origin_rpy[i] += radians * unit(random);
      }
    }
  };
}

/// Axis 4 across axes 2 and 3, axes 5 and 6 apart: no closed form.
void rearrange(std::vector<description::UrdfJoint>& joints) {
  joints[3].axis = {1.0, 0.0, 0.0};
  joints[5].origin_xyz = {0.1, 0.05, 0.04};
}

JointArray random_joints(const SixJointChain& chain, std::mt19937& random) {
  JointArray q;
  for (std::size_t j = 0; j < q.size(); ++j) {
    q[j] = std::uniform_real_distribution<double>(chain.ranges()[j].lower,
                                                  chain.ranges()[j].upper)(random);
  }
  return q;
}

bool holds(const PoseSolutions& found, const JointArray& q, double tolerance = 1e-5) {
  return std::any_of(found.q.begin(), found.q.begin() + found.count, [&](const JointArray& other) {
    return std::equal(q.begin(), q.end(), other.begin(),
                      [&](double a, double b) { return std::abs(a - b) < tolerance; });
  });
}

/// Each solution reaches the pose within the limits, and none is there twice.
void expect_valid(const InverseKinematics& solver, const Frame& target, PoseSolutions found) {
  while (found.count > 0) {
    const JointArray q = found.q[--found.count];
    EXPECT_LT(pose_error(solver.chain(), target, q), 1e-9);
    EXPECT_EQ(largest_excess(solver.chain().ranges(), q).by, 0.0);
    EXPECT_FALSE(holds(found, q, 1e-6));
  }
}

struct Family {
  const char* name;
  Edit edit;
  Method method;
  int poses;
  int searched;    // of them, compared with the numeric search
  int overlooked;  // of the poses: how many may lack the angles that they were made from
};

void PrintTo(const Family& family, std::ostream* out) { *out << family.name; }

class Families : public ::testing::TestWithParam<Family> {};

TEST_P(Families, HaveAllSolutionsOfRandomPoses) {
  const InverseKinematics solver = solver_of(GetParam().edit);
  ASSERT_EQ(solver.method(), GetParam().method);
  std::mt19937 random(3);
  int overlooked = 0;
  for (int trial = 0; trial < GetParam().poses; ++trial) {
    JointArray q = random_joints(solver.chain(), random);
    if (trial % 5 == 0) {  // at a limit
      q[trial % 6] = solver.chain().ranges()[trial % 6].upper;
    }
    const Frame target = solver.chain().tool_frame(q);
    const PoseSolutions found = solver.solutions(target);
    EXPECT_GT(found.count, 0) << ::testing::PrintToString(q);
    expect_valid(solver, target, found);
    overlooked += holds(found, q) ? 0 : 1;
    if (trial < GetParam().searched) {
      const PoseSolutions searched =
          search_pose(solver.chain(), target, solver.chain().ranges(), q);
      for (int k = 0; k < searched.count; ++k) {
        EXPECT_TRUE(holds(found, searched.q[k])) << ::testing::PrintToString(searched.q[k]);
      }
    }
  }
  EXPECT_LE(overlooked, GetParam().overlooked);
}

INSTANTIATE_TEST_SUITE_P(
    InverseKinematics, Families,
    ::testing::Values(
        Family{"the arm", [](auto&) {}, Method::kClosedForm, 10000, 200, 0},
        Family{"wide limits", widen_limits, Method::kClosedForm, 1000, 50, 0},
        Family{"offsets", add_offsets, Method::kClosedForm, 1000, 50, 0},
        Family{"rounded", disturbed_by(0.0, 1e-7, 1), Method::kClosedFormSeeds, 2000, 20, 0},
        Family{"disturbed", disturbed_by(1e-3, 1e-3, 2), Method::kClosedFormSeeds, 2000, 50, 1},
        Family{"another family", rearrange, Method::kSearch, 20, 0, 0}));

TEST(InverseKinematics, MarksRepresentativesOfAContinuum) {
  const InverseKinematics solver = solver_of([](auto& joints) { joints[4].upper = 2.0; });
  const auto& [ranges, chain] = std::tie(solver.chain().ranges(), solver.chain());
  // The wrist centre on axis 1: joint 1 is free, and taken from the hint.
  const Frame shoulder =
      frame_of({{0.254 * std::cos(0.5), 0.0, 0.5 - 0.254 * std::sin(0.5)}, {0.0, 0.5, 0.0}});
  // Axis 6 along axes 2, 3 and 4: joint 6 is free.
  const Frame wrist = chain.tool_frame({0.3, 0.2, 0.1, -0.4, M_PI / 2, 0.7});
  // The elbow stretched: one solution twice, but no continuum.
  const Frame elbow = chain.tool_frame({0.3, 0.2, -M_PI / 2, 0.4, 0.5, 0.6});
  for (const double hint : {-0.4, 0.0, 0.4}) {
    for (const auto& [target, joint] : {std::pair(shoulder, 0), std::pair(wrist, 5)}) {
      JointArray near{};
      near[joint] = hint;
      const PoseSolutions found = solver.solutions(target, near);
      ASSERT_GT(found.count, 0) << joint << ' ' << hint;
      expect_valid(solver, target, found);
      EXPECT_TRUE(found.singular[0]);
      EXPECT_NEAR(found.q[0][joint], hint, 1e-6);
    }
  }
  const PoseSolutions stretched = solver.solutions(elbow);
  expect_valid(solver, elbow, stretched);
  EXPECT_TRUE(holds(stretched, {0.3, 0.2, -M_PI / 2, 0.4, 0.5, 0.6}));
  EXPECT_FALSE(stretched.singular[0]);
}

TEST(InverseKinematics, HasEveryTurnWithinTheLimitsAndTheOneNextToTheGivenAngles) {
  const EditedDescription edited;
  edited.edit_urdf("lower=\"-2.9\" upper=\"2.9\"", "lower=\"-7\" upper=\"7\"");
  const RobotKinematics model;
  const JointArray q{0.3, 0.5, -0.4, 0.5, -0.6, 0.6};
  const auto all = model.inverse_kinematics_all(model.pose(q));
  for (const double turns : {-1.0, 0.0, 1.0}) {
    JointArray turned = q;
    turned[5] += 2.0 * M_PI * turns;
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [&](const JointArray& found) {
                              return std::abs(found[0] - q[0]) < 1e-9 &&
                                     std::abs(found[5] - turned[5]) < 1e-9;
                            }),
              1);
    EXPECT_NEAR(model.solve_pose(model.pose(q), turned)[5], turned[5], 1e-9);
  }
  edited.edit_urdf("lower=\"-2.9\" upper=\"2.9\"", "lower=\"-1e300\" upper=\"1e300\"");
  const RobotKinematics endless;
  EXPECT_LE(endless.inverse_kinematics_all(model.pose(q)).size(), 8 * 729);
}

TEST(InverseKinematics, SolvesFromNearAndFarForTheNearestSolution) {
  const InverseKinematics solver = solver_of();
  std::mt19937 random(8);
  for (int trial = 0; trial < 1000; ++trial) {
    const JointArray q = random_joints(solver.chain(), random);
    const JointArray far = random_joints(solver.chain(), random);
    const Frame target = solver.chain().tool_frame(q);
    const PoseSolutions found = solver.solutions(target);
    const auto distance = [&](const JointArray& solution) {
      double sum = 0.0;
      for (std::size_t j = 0; j < q.size(); ++j) {
        sum += std::pow(solution[j] - far[j], 2);
      }
      return sum;
    };
    const double least = distance(
        *std::min_element(found.q.begin(), found.q.begin() + found.count,
                          [&](const auto& a, const auto& b) { return distance(a) < distance(b); }));
    EXPECT_NEAR(distance(solver.solve(target, far)), least, 1e-9);
  }
}

TEST(InverseKinematics, ExplainsWhyThereIsNoSolution) {
  const RobotKinematics model;
  const auto error_for = [&](const Pose& pose) {
    try {
      model.solve_pose(pose, {});
    } catch (const MotionError& error) {
      return error;
    }
    return MotionError(MotionErrorCode::kCollision, "solved");
  };
  const Pose beyond_joint_1 = model.pose({3.0, 0.0, 0.0, 0.0, 0.0, 0.0});
  const MotionError limit = error_for(beyond_joint_1);
  EXPECT_EQ(limit.code(), MotionErrorCode::kJointLimit);
  EXPECT_EQ(limit.joint(), 1);
  EXPECT_STREQ(limit.what(),
               "the pose needs joint 1 at 3.0000 rad, 0.2000 rad beyond its limit of 2.8000 rad");
  EXPECT_TRUE(model.inverse_kinematics_all(beyond_joint_1).empty());
  const MotionError reach = error_for({{0.9, 0.0, 0.3}, {0.0, 0.0, 0.1}});
  EXPECT_EQ(reach.code(), MotionErrorCode::kOutOfReach);
  EXPECT_THAT(reach.what(),
              HasSubstr("no joint angles reach the pose at (0.9000, 0.0000, 0.3000)"));
  EXPECT_EQ(error_for({{1e200, 0.0, 0.0}, {}}).code(), MotionErrorCode::kOutOfReach);
  EXPECT_EQ(error_of([&] {
              model.pose_solutions({{NAN, 0.0, 0.0}, {}});
            }),
            "invalid argument: inverse kinematics: the pose holds a value that is not finite");
  EXPECT_EQ(
      error_of([&] {
        model.solve_pose({}, {0.0, INFINITY});
      }),
      "invalid argument: inverse kinematics: the joint angles hold a value that is not finite");
}

}  // namespace
}  // namespace kelvara::kinematics
