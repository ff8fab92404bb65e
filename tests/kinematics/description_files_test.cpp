// The robot-description files: where they are looked for, and what is made of good and bad ones.

#include <cmath>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "kinematics/config_paths.hpp"
#include "kinematics/kinematics_config.hpp"
#include "kinematics/urdf_chain.hpp"
#include "support/temporary_directory.hpp"

#include "description/controller_settings.hpp"

namespace kelvara {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

template <typename Action>
std::string error_of(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

// ---- Location -------------------------------------------------------------

TEST(ConfigPaths, PrefersConfigFoldersThenTheCurrentDirectoryAndNeverCaches) {
  const TemporaryWorkingDirectory directory;
  const auto found = [] { return algorithms::find_config_file("kelvara-test.yaml").string(); };
  EXPECT_THAT(error_of(found), HasSubstr("Failed to locate config file 'kelvara-test.yaml'. "
                                         "Checked relative to library path \"/"));
  EXPECT_THAT(error_of(found),
              HasSubstr("\" and current path \"" + directory.path().string() + "\"."));
  // From the last place that is looked at to the first.
  for (const char* place : {"../kelvara-test.yaml", "kelvara-test.yaml",
                            "../config/kelvara-test.yaml", "config/kelvara-test.yaml"}) {
    directory.write(place, "");
    EXPECT_EQ(found(), std::filesystem::canonical(directory.path() / place).string());
  }
}

// ---- URDF -----------------------------------------------------------------

std::string urdf_error(const std::string& text) {
  const TemporaryWorkingDirectory directory;
  directory.write("arm.urdf", text);
  return error_of([] { kinematics::build_kdl_chain(kinematics::load_urdf("arm.urdf"), {}); });
}

std::string joint(const std::string& attributes, const std::string& child,
                  const std::string& more = "") {
  return "<joint " + attributes + "><parent link='a'/><child " + child + "/>" + more + "</joint>";
}

TEST(Urdf, NamesWhatIsWrong) {
  const std::string links = "<link name='a'/><link name='b'/>";
  const std::string good = "name='j' type='revolute'";
  const std::vector<std::pair<std::string, std::string>> cases{
      {links + joint("type='revolute'", "link='b'"), "Encountered URDF joint without name/type"},
      {links + joint(good, ""), "URDF joint 'j' is missing parent/child link"},
      {links + joint(good, "link='b'", "<axis xyz='0 0 0'/>"),
       "URDF joint 'j' has zero-length axis"},
      {links + joint(good, "link='b'", "<axis xyz='1.7e308 1.7e308 0'/>"),
       "URDF joint 'j' has an axis that is too long"},
      {links + joint(good, "link='b'", "<origin xyz='1 2'/>"),
       "Failed to parse xyz/rpy vector from '1 2'"},
      {links + "<link name='c'/>" + joint(good, "link='b'") +
           joint("name='k' type='fixed'", "link='c'"),
       "URDF is not a single serial chain at link 'a'"},
      {links + joint("name='j' type='floating'", "link='b'"),
       "Unsupported URDF joint type: floating"},
      {"<link/>", "Encountered URDF link without a name attribute"},
      {"<link name='a'><inertial><mass/></inertial></link>", "Failed to parse mass for link 'a'"},
      {"<link name='a'><inertial><inertia ixx='1'/></inertial></link>",
       "Failed to parse inertia matrix for link 'a'"},
      {"<link name='a'/>" + joint(good, "link='a'"), "Failed to determine URDF root link"},
  };
  for (const auto& [body, message] : cases) {
    EXPECT_EQ(urdf_error("<robot>" + body + "</robot>"), message) << body;
  }
  EXPECT_EQ(urdf_error("<arm/>"), "URDF at arm.urdf does not contain a <robot> root");
  EXPECT_THAT(urdf_error("<robot>"), HasSubstr("Failed to load URDF at arm.urdf: "));
}

TEST(Urdf, ReadsLimitsAxesAndInertiaInTheLinkFrame) {
  const TemporaryWorkingDirectory directory;
  directory.write("arm.urdf", R"(<robot>
    <link name='a'/>
    <link name='b'><inertial><origin xyz='1 2 3' rpy='0 0 1.5707963267948966'/><mass value='2'/>
      <inertia ixx='1' ixy='0' ixz='0' iyy='2' iyz='0' izz='3'/></inertial></link>
    <link name='c'/><link name='d'/>
    <joint name='j1' type='revolute'><parent link='a'/><child link='b'/>
      <axis xyz='0 3 4'/><limit lower='-1' upper='2'/></joint>
    <joint name='j2' type='continuous'><parent link='b'/><child link='c'/>
      <limit lower='-1' upper='2'/></joint>
    <joint name='j3' type='prismatic'><parent link='c'/><child link='d'/>
      <limit upper='2'/></joint></robot>)");
  const kinematics::UrdfDescription urdf = kinematics::load_urdf("arm.urdf");
  ASSERT_EQ(urdf.joints.size(), 3U);
  EXPECT_TRUE(urdf.joints[0].has_limits);
  EXPECT_NEAR(urdf.joints[0].axis[2], 0.8, 1e-15);
  EXPECT_FALSE(urdf.joints[1].has_limits);
  EXPECT_EQ(urdf.joints[1].axis, (kinematics::Triple{0, 0, 1}));
  EXPECT_FALSE(urdf.joints[2].has_limits);
  const KDL::RigidBodyInertia inertia = kinematics::to_kdl_inertia(urdf.inertials.at("b"));
  EXPECT_EQ(inertia.getMass(), 2.0);
  // About the link's origin: the quarter turn exchanges x and y, Steiner adds m·(y² + z²).
  EXPECT_NEAR(inertia.getRotationalInertia().data[0], 2.0 + 2.0 * 13.0, 1e-12);
  EXPECT_NEAR(inertia.getRotationalInertia().data[4], 1.0 + 2.0 * 10.0, 1e-12);

  kinematics::KinematicsConfig config;
  config.has_payload = true;
  const KDL::Chain chain = kinematics::build_kdl_chain(urdf, config);
  EXPECT_EQ(chain.getNrOfJoints(), 3U);
  EXPECT_EQ(chain.getNrOfSegments(), 8U);
}

// ---- Kinematics part of the YAML file -------------------------------------

std::string kinematics_error(const std::string& text) {
  const TemporaryWorkingDirectory directory;
  directory.write("config/robot_kinematics.yaml", text);
  std::string error = error_of([] { kinematics::load_kinematics_config(); });
  const std::string path = (directory.path() / "config/robot_kinematics.yaml").string();
  const std::size_t at = error.find(path);
  return at == std::string::npos ? error : error.replace(at, path.size(), "FILE");
}

TEST(KinematicsConfig, NamesWhatIsWrong) {
  const std::string tool = "kinematics:\n  tool: {xyz: [0, 0, .1], rpy: [0, 0, 0]}\n";
  const std::string bad = "Invalid kinematics config at FILE: ";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"a: 1", bad + "missing 'kinematics.tool' map"},
      {"", bad + "missing 'kinematics.tool' map"},
      {"kinematics: {tool: {xyz: [0, 0], rpy: [0, 0, 0]}}",
       bad + "field 'kinematics.tool.xyz' must be a sequence of 3 numbers"},
      {"kinematics: {tool: {xyz: [0, 0, 0], rpy: [0, up, 0]}}",
       bad + "field 'kinematics.tool.rpy' contains a non-numeric value: up"},
      {tool + "  payload: {com: [0, 0, 0]}", bad + "missing or invalid 'kinematics.payload.mass'"},
      {tool + "  payload: {mass: heavy}", bad + "'kinematics.payload.mass' must be numeric: heavy"},
      {tool + "  payload: {mass: 1}",
       bad + "missing 'kinematics.payload.com' or 'kinematics.payload.origin.xyz'"},
      {tool + "  payload: {mass: 1, origin: {xyz: [1, 2, x]}}",
       bad + "field 'kinematics.payload.origin.xyz' contains a non-numeric value: x"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_EQ(kinematics_error(text), message) << text;
  }
  EXPECT_THAT(kinematics_error("a: ["), HasSubstr("Failed to parse kinematics config at FILE: "));
}

TEST(KinematicsConfig, PrefersComToOriginAndTakesInfinity) {
  const TemporaryWorkingDirectory directory;
  directory.write(
      "config/robot_kinematics.yaml",
      "kinematics:\n  tool: {xyz: [0, 0, .1], rpy: [1e-1, '2 ', -3]}\n"
      "  payload: {mass: .inf, com: [1, 2, 3], origin: {xyz: [4, 5, 6], rpy: [7, 8, 9]}}");
  const kinematics::KinematicsConfig config = kinematics::load_kinematics_config();
  EXPECT_EQ(config.tool_rpy, (kinematics::Triple{0.1, 2.0, -3.0}));
  EXPECT_TRUE(std::isinf(config.payload.mass));
  EXPECT_EQ(config.payload.origin_xyz, (kinematics::Triple{1, 2, 3}));
  EXPECT_EQ(config.payload.origin_rpy, (kinematics::Triple{7, 8, 9}));
}

// ---- Controller parts of the YAML file ------------------------------------

const std::string kSix = "[1, 2, 3, 4, 5, 6]";

/// The controller's four parts, the later ones replaced by `text`.
std::string settings(const std::string& text, int parts_before) {
  const std::string pos_vel = "pos_vel_mode: {max_acc_limits: " + kSix +
                              ", max_dec_limits: " + kSix + ", kp_apr_limits: " + kSix + "}\n";
  const std::string mit =
      "mit_mode: {kp: " + kSix + ", kd: " + kSix + ", gravity_tau_limits: " + kSix + "}\n";
  const std::string trajectory = "joint_trajectory: {max_vel_limits: " + kSix +
                                 ", max_acc_limits: " + kSix + ", max_jerk_limits: " + kSix + "}\n";
  return (parts_before > 0 ? pos_vel : "") + (parts_before > 1 ? mit : "") +
         (parts_before > 2 ? trajectory : "") + text;
}

std::string controller_error(const std::string& text, int parts_before) {
  const TemporaryWorkingDirectory directory;
  directory.write("config/robot_kinematics.yaml", settings(text, parts_before));
  return error_of([] { description::load_controller_settings(); });
}

TEST(ControllerSettings, NamesWhatIsWrong) {
  EXPECT_THAT(controller_error("a: 1", 0),
              ::testing::StartsWith("Invalid POS_VEL_MODE config at /"));
  EXPECT_THAT(controller_error("mit_mode: 1", 1), EndsWith(": missing 'mit_mode' map"));
  EXPECT_THAT(controller_error("", 2), EndsWith(": missing 'joint_trajectory' map"));
  EXPECT_THAT(controller_error("mit_mode: {kp: [1, 2, 3, 4, 5]}", 1),
              EndsWith(": field 'mit_mode.kp' must be a sequence of 6 numbers"));
  EXPECT_THAT(controller_error("motor_signs: [1, 1, 1, 1, 1, one]", 3),
              HasSubstr(": field 'motor_signs' contains a non-numeric value: "));
  const std::string mit = "mit_mode: {kp: " + kSix + ", kd: " + kSix +
                          ", gravity_tau_limits: " + kSix + ", gravity_comp_scale: ";
  EXPECT_THAT(controller_error(mit + "much}", 1), EndsWith("gravity_comp_scale must be a number"));
  for (const std::string limit : {"-5", ".nan"}) {
    EXPECT_THAT(controller_error("mit_mode: {kp: " + kSix + ", kd: " + kSix +
                                     ", gravity_tau_limits: [1, 1, 1, 1, 1, " + limit + "]}",
                                 1),
                EndsWith(": field 'mit_mode.gravity_tau_limits' must not hold negative values"));
  }
}

TEST(ControllerSettings, TakesASpeedFractionAboveZeroAndUpToOne) {
  const auto speed = [](const std::string& value) {
    const TemporaryWorkingDirectory directory;
    directory.write(
        "config/robot_kinematics.yaml",
        settings("joint_trajectory: {max_vel_limits: " + kSix + ", max_acc_limits: " + kSix +
                     ", max_jerk_limits: " + kSix + value + "}\nmotor_signs: " + kSix,
                 2));
    return description::load_controller_settings().joint_trajectory.default_speed_percent;
  };
  EXPECT_EQ(speed(""), 0.1);
  EXPECT_EQ(speed(", default_speed_percent: "), 0.1);
  EXPECT_EQ(speed(", default_speed_percent: 1"), 1.0);
  for (const char* value : {"0", "1.5", ".nan", "fast"}) {
    EXPECT_THAT(error_of([&] { speed(std::string(", default_speed_percent: ") + value); }),
                EndsWith(": default_speed_percent must be in (0, 1]"))
        << value;
  }
}

TEST(ControllerSettings, OfAFileThatCannotBeParsedAreUnreadable) {
  const TemporaryWorkingDirectory directory;
  directory.write("config/robot_kinematics.yaml", "a: [");
  EXPECT_THROW(description::load_controller_settings(), description::UnreadableFile);
  EXPECT_THAT(error_of([] { description::load_controller_settings(); }),
              ::testing::StartsWith("Failed to parse POS_VEL_MODE config at /"));
}

}  // namespace
}  // namespace kelvara
