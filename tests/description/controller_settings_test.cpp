#include "description/controller_settings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/changing_file.hpp"
#include "support/comma_locale.hpp"

#include "description/settings_file.hpp"

namespace kelvara::description {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kSix = "[1, 2, 3, 4, 5, 6]";
const std::string kPosVel = "pos_vel_mode: {max_acc_limits: " + kSix + ", max_dec_limits: " + kSix +
                            ", kp_apr_limits: " + kSix + "}\n";
const std::string kMit =
    "mit_mode: {kp: " + kSix + ", kd: [1, 2, 3, 4, 5, 5]" + ", gravity_tau_limits: " + kSix + "}\n";
const std::string kTrajectory = "joint_trajectory: {max_vel_limits: " + kSix +
                                ", max_acc_limits: " + kSix + ", max_jerk_limits: " + kSix + "}\n";
const std::string kSigns = "motor_signs: [1, 1, -1, 1, 1, 1]\n";
const std::string kSettings = kPosVel + kMit + kTrajectory + kSigns;

/// The good settings with the first six numbers of a key, or the end of its part, replaced.
std::string with(const std::string& key, const std::string& value) {
  std::string text = kSettings;
  const std::size_t begin = text.find(key + ": ") + key.size() + 2;
  return text.replace(begin, text.find(']', begin) + 1 - begin, value);
}

ControllerSettings load(const std::string& text) {
  const TemporaryWorkingDirectory directory;
  directory.write("settings.yaml", text);
  return load_controller_settings("settings.yaml");
}

std::string error_in(const std::string& text) {
  return settings_error(text, load_controller_settings);
}

TEST(ControllerSettings, NameTheFirstPartThatIsWrong) {
  EXPECT_EQ(error_in("a: 1"), "Invalid POS_VEL_MODE config at FILE: missing 'pos_vel_mode' map");
  EXPECT_EQ(error_in(kPosVel + "mit_mode: 1"),
            "Invalid MIT_MODE config at FILE: missing 'mit_mode' map");
  EXPECT_EQ(error_in(kPosVel + kMit),
            "Invalid joint trajectory config at FILE: missing 'joint_trajectory' map");
  const std::string array = "Invalid joint array config at FILE: field '";
  EXPECT_EQ(error_in(kPosVel + kMit + kTrajectory),
            array + "motor_signs' must be a sequence of 6 numbers");
  EXPECT_EQ(error_in(with("kp", "[1, 2, 3, 4, 5]")),
            array + "mit_mode.kp' must be a sequence of 6 numbers");
  EXPECT_EQ(error_in(with("motor_signs", "[1, 1, 1, 1, 1, one]")),
            array +
                "motor_signs' contains a non-numeric value: "
                "yaml-cpp: error at line 4, column 30: bad conversion");
  EXPECT_EQ(error_in(with("gravity_tau_limits", kSix + ", gravity_comp_scale: much")),
            "Invalid MIT_MODE config at FILE: gravity_comp_scale must be a number");
}

TEST(ControllerSettings, RefuseNegativeAndNanLimitsAndGains) {
  for (const std::string name :
       {"pos_vel_mode.max_acc_limits", "pos_vel_mode.max_dec_limits", "pos_vel_mode.kp_apr_limits",
        "mit_mode.kp", "mit_mode.kd", "mit_mode.gravity_tau_limits"}) {
    const std::string key = name.substr(name.find('.') + 1);
    for (const std::string limit : {"-5", ".nan"}) {
      EXPECT_EQ(error_in(with(key, "[1, 1, 1, 1, 1, " + limit + "]")),
                "Invalid joint array config at FILE: field '" + name +
                    "' must not hold negative values: joint 6 has " +
                    (limit == ".nan" ? "nan" : limit));
    }
  }
}

TEST(ControllerSettings, TakeASpeedFractionAboveZeroAndUpToOne) {
  const auto speed = [](const std::string& value) {
    return with("max_jerk_limits", kSix + ", default_speed_percent: " + value);
  };
  EXPECT_EQ(load(kSettings).joint_trajectory.default_speed_percent, 0.1);
  EXPECT_EQ(load(speed("")).joint_trajectory.default_speed_percent, 0.1);
  EXPECT_EQ(load(speed("1")).joint_trajectory.default_speed_percent, 1.0);
  for (const char* value : {"0", "1.5", ".nan", "fast"}) {
    EXPECT_EQ(error_in(speed(value)),
              "Invalid joint trajectory config at FILE: "
              "default_speed_percent must be in (0, 1]")
        << value;
  }
}

TEST(ControllerSettings, HaveNoJointDynamicsUnlessTheFileDoes) {
  for (const char* part : {"", "joint_dynamics:\n", "joint_dynamics: {rotor_inertia: }\n"}) {
    EXPECT_EQ(load(kSettings + part).joint_dynamics.rotor_inertia, JointArray{}) << part;
  }
  const JointDynamicsConfig read = load(kSettings + "joint_dynamics: {rotor_inertia: " + kSix +
                                        ", coulomb_friction: [0, 0, 0, 0.2, 0, 0]}\n")
                                       .joint_dynamics;
  EXPECT_EQ(read.rotor_inertia, (JointArray{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(read.viscous_friction, JointArray{});
  EXPECT_EQ(read.coulomb_friction, (JointArray{0, 0, 0, 0.2, 0, 0}));
}

TEST(ControllerSettings, RefuseNegativeAndInfiniteJointDynamics) {
  EXPECT_EQ(error_in(kSettings + "joint_dynamics: [1]\n"),
            "Invalid joint dynamics config at FILE: missing 'joint_dynamics' map");
  const std::pair<const char*, const char*> wrong[] = {
      {"[1, 2]", "must be a sequence of 6 numbers"},
      {"[0, 0, 0, 0, -1, 0]", "must not hold negative values: joint 5 has -1"},
      {"[.nan, 0, 0, 0, 0, 0]", "must not hold negative values: joint 1 has nan"},
      {"[0, .inf, 0, 0, 0, 0]", "must not hold infinite values: joint 2 has inf"}};
  for (const std::string key : {"rotor_inertia", "viscous_friction", "coulomb_friction"}) {
    for (const auto& [value, text] : wrong) {
      EXPECT_EQ(error_in(kSettings + "joint_dynamics: {" + key + ": " + value + "}\n"),
                "Invalid joint array config at FILE: field 'joint_dynamics." + key + "' " + text);
    }
  }
}

TEST(ControllerSettings, ReportGainsThatAFrameCannotCarry) {
  const CommaLocale locale;
  EXPECT_TRUE(load(kSettings).reports.empty());
  EXPECT_TRUE(load(with("kp", "[1, 500, 1, 1, 1, 1]")).reports.empty());
  const ControllerSettings settings = load(with("kp", "[1, 600.5, 1, 1, 1, 1234567]"));
  EXPECT_EQ(settings.mit.kp[1], 600.5);
  EXPECT_THAT(settings.reports,
              ::testing::ElementsAre(
                  "mit_mode.kp of joint 2 is 600.5; a frame carries at most 500, which is sent",
                  "mit_mode.kp of joint 6 is 1.23457e+06; a frame carries at most 500, which is "
                  "sent"));
  EXPECT_THAT(load(with("kd", "[.inf, 1, 1, 1, 1, 1]")).reports,
              ::testing::ElementsAre(
                  "mit_mode.kd of joint 1 is inf; a frame carries at most 5, which is sent"));
  EXPECT_THAT(error_in(with("kd", "['0,7', 1, 1, 1, 1, 1]")),
              HasSubstr("field 'mit_mode.kd' contains a non-numeric value: yaml-cpp: error"));
}

TEST(ControllerSettings, AreReadAtOneOpeningOfTheFile) {
  const TemporaryWorkingDirectory directory;
  directory.write("settings.yaml", kSettings);
  const ChangingFile file("settings.yaml", "a: 1");
  EXPECT_EQ(load_controller_settings("settings.yaml").motor_signs, (JointArray{1, 1, -1, 1, 1, 1}));
}

TEST(ControllerSettings, AreUnreadableInAFileThatCannotBeOpenedOrParsed) {
  const TemporaryWorkingDirectory directory;
  directory.write("settings.yaml", "a: [");
  EXPECT_THROW(load_controller_settings("settings.yaml"), UnreadableFile);
  EXPECT_THROW(load_controller_settings("none.yaml"), UnreadableFile);
  EXPECT_THAT(error_in("a: ["), StartsWith("Failed to parse POS_VEL_MODE config at FILE: "));
}

}  // namespace
}  // namespace kelvara::description
