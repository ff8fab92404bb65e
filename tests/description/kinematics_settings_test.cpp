#include "description/kinematics_settings.hpp"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "description/settings_file.hpp"

namespace kelvara::description {
namespace {

using ::testing::HasSubstr;

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
    EXPECT_EQ(settings_error(text, load_kinematics_config), message) << text;
  }
  EXPECT_THAT(settings_error("a: [", load_kinematics_config),
              HasSubstr("Failed to parse kinematics config at FILE: "));
}

TEST(KinematicsConfig, PrefersComToOriginAndTakesInfinity) {
  const TemporaryWorkingDirectory directory;
  directory.write(
      "settings.yaml",
      "kinematics:\n  tool: {xyz: [0, 0, .1], rpy: [1e-1, '2 ', -3]}\n"
      "  payload: {mass: .inf, com: [1, 2, 3], origin: {xyz: [4, 5, 6], rpy: [7, 8, 9]}}");
  const KinematicsConfig config = load_kinematics_config("settings.yaml");
  EXPECT_EQ(config.tool_rpy, (Triple{0.1, 2.0, -3.0}));
  EXPECT_TRUE(std::isinf(config.payload.mass));
  EXPECT_EQ(config.payload.origin_xyz, (Triple{1, 2, 3}));
  EXPECT_EQ(config.payload.origin_rpy, (Triple{7, 8, 9}));
}

}  // namespace
}  // namespace kelvara::description
