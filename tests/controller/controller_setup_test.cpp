#include "controller/controller_setup.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/captured_output.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"

namespace kelvara::controller {
namespace {

using ::testing::HasSubstr;

const std::string kJoint2Limits = "lower=\"-1.57\" upper=\"1.92\"";  // limits of joint 2

struct Setup : ::testing::Test {
  /// What a set-up with the edited files throws, or else what it writes to standard error.
  std::string outcome(const SetupRequest& request) const {
    const CapturedOutput output;
    const std::string error = error_of([&] { load_setup(request, RobotKinematics()); });
    return error.empty() ? output.err() : error;
  }
  std::string urdf() const {
    return std::filesystem::canonical(description.path() / "BrimloV2.SLDASM.urdf").string();
  }

  const EditedDescription description;
};

TEST_F(Setup, RefusesSwappedLimitsAndJointsThatSlideWhichTheModelReads) {
  description.edit_urdf(kJoint2Limits, "lower=\"1.92\" upper=\"-1.57\"");
  EXPECT_EQ(
      outcome({.with_gripper = true}),
      "Invalid URDF at " + urdf() + ": joint 2 ('joint2') has limit lower=1.92 above upper=-1.57");
  EXPECT_EQ(RobotKinematics().joint_lower()[1], 1.92);
  description.edit_urdf("name=\"joint3\" type=\"revolute\"", "name=\"joint3\" type=\"prismatic\"");
  EXPECT_EQ(outcome({.with_gripper = true}),
            "Invalid URDF at " + urdf() +
                ": joint 3 ('joint3') has type='prismatic'; its motor can only turn it");
  EXPECT_EQ(RobotKinematics().num_joints(), 6);
}

TEST_F(Setup, NamesAJointWithoutTwoLimitsOrRefusesItUnlessItIsContinuous) {
  const std::string lacks = urdf() + ": joint 2 ('joint2') lacks a finite lower or upper limit";
  for (const std::string limits :
       {"", "upper=\"1.92\"", "lower=\"nan\" upper=\"1.92\"", "lower=\"-1.57\" upper=\"inf\""}) {
    description.edit_urdf(kJoint2Limits, limits);
    EXPECT_EQ(outcome({.with_gripper = true}),
              "[ArmController] " + lacks + "; its range is unlimited\n");
    EXPECT_EQ(outcome({.with_gripper = true, .require_limits = true}),
              "Invalid URDF at " + lacks + " and is not continuous");
  }
  description.edit_urdf("name=\"joint2\" type=\"revolute\"", "name=\"joint2\" type=\"continuous\"");
  EXPECT_EQ(outcome({.with_gripper = true, .require_limits = true}), "");
}

TEST_F(Setup, ReportsThePayloadOfAGripperThatIsNotFitted) {
  EXPECT_EQ(outcome({.with_gripper = true}), "");
  EXPECT_THAT(outcome({.with_gripper = false}),
              HasSubstr("robot_kinematics.yaml adds a payload of 0.4 kg: a floating arm rises"));
  description.edit("mass: 0.4", "mass: 0");
  EXPECT_EQ(outcome({.with_gripper = false}), "");
}

TEST_F(Setup, ReadsTheSettingsOfTheModelAndThrowsIfTheyHaveBecomeUnreadable) {
  description.edit("kp: [150.0", "kp: [100.0");
  const auto settings = std::filesystem::path("other settings.yaml");
  std::filesystem::copy("config/robot_kinematics.yaml", settings);
  std::filesystem::remove("config/robot_kinematics.yaml");
  const RobotKinematics model("", settings);
  EXPECT_EQ(load_setup({.with_gripper = true}, model).mit.kp[0], 100.0);
  std::filesystem::remove(settings);
  EXPECT_THAT(error_of([&] { load_setup({.exit_on_unreadable_file = false}, model); }),
              HasSubstr("Failed to open POS_VEL_MODE config at " +
                        model.description_files().settings_path));
}

}  // namespace
}  // namespace kelvara::controller
