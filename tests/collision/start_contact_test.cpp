#include <gtest/gtest.h>

#include "kelvara/collision/environment.hpp"
#include "kelvara/kinematics/kinematics.hpp"
#include "kelvara/motion/planner.hpp"
#include "support/outcomes.hpp"

namespace kelvara {
namespace {

using Joints = std::array<double, 6>;

constexpr Joints kHome{};
constexpr Joints kPressed{0.0, 0.4, 0.3, -0.3, 0.0, 0.0};  // the jaws in the table
constexpr Joints kDeeper{0.0, 0.43, 0.3, -0.3, 0.0, 0.0};
constexpr double kTolerance = 1e-4;  // m

/// The arm with its jaws in a table.
class StartContact : public testing::Test {
 protected:
  StartContact() { environment.add_box("table", {0.5, 1.0, 0.4}, {{0.55, 0.0, -0.16}, {}}); }

  double depth(const Joints& q) const { return environment.contact_at(q).value().depth_m; }
  std::string refusal(const Plan& plan) const {
    return error_of([&] { environment.check(plan); });
  }

  const RobotKinematics model;
  const MotionPlanner planner{model, MotionLimits::from_settings("config/robot_kinematics.yaml")};
  Environment environment{model};
};

TEST_F(StartContact, AllowsARetreatAndASlideAtConstantDepth) {
  ASSERT_GT(depth(kPressed), 10 * kTolerance);
  EXPECT_EQ(refusal(planner.plan_joint(kPressed, kHome)), "");
  const Joints aside{0.4, 0.4, 0.3, -0.3, 0.0, 0.0};
  ASSERT_NEAR(depth(aside), depth(kPressed), 1e-6);
  EXPECT_EQ(refusal(planner.plan_joint(kPressed, aside)), "");
}

TEST_F(StartContact, AllowsARetreatFromWithinTheMargin) {
  Joints above = kPressed;
  while (environment.contact_at(above)) {
    above[1] -= 0.001;
  }
  environment.set_margin(0.02);
  ASSERT_LT(depth(above), 0.0);
  EXPECT_EQ(refusal(planner.plan_joint(above, kHome)), "");
  EXPECT_NE(refusal(planner.plan_joint(above, kPressed)), "");
}

TEST_F(StartContact, RefusesToPressDeeper) {
  const Plan plan = planner.plan_joint(kPressed, kDeeper);
  const Contact contact = environment.first_contact(plan).value();
  EXPECT_EQ(contact.first + " " + contact.second, "link6 table");
  EXPECT_NEAR(depth(plan.at(contact.time_s).q), depth(kPressed) + kTolerance, kTolerance);
  EXPECT_NEAR(contact.depth_m, depth(kDeeper), 1e-6);
}

TEST_F(StartContact, RefusesToTouchAgainAfterTheRetreat) {
  const Plan plan = planner.plan_waypoints(kPressed, {kHome, kPressed});
  const Contact contact = environment.first_contact(plan).value();
  EXPECT_GT(contact.time_s, 0.5 * plan.duration_s());
  EXPECT_FALSE(environment.contact_at(plan.at(contact.time_s - 0.002).q));
  EXPECT_TRUE(environment.contact_at(plan.at(contact.time_s + 0.002).q));
}

TEST_F(StartContact, RefusesAnotherContactOnTheRetreat) {
  const Plan plan = planner.plan_joint(kPressed, kHome);
  environment.add_box("shelf", {0.2, 0.2, 0.02}, {{0.55, 0.0, 0.3}, {}});
  ASSERT_EQ(environment.contact_at(kPressed).value().second, "table");
  EXPECT_EQ(environment.first_contact(plan).value().second, "shelf");
}

}  // namespace
}  // namespace kelvara
