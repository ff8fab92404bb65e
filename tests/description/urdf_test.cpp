#include "description/urdf.hpp"

#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/comma_locale.hpp"
#include "support/outcomes.hpp"
#include "support/temporary_directory.hpp"

namespace kelvara::description {
namespace {

using ::testing::HasSubstr;

std::string urdf_error(const std::string& text) {
  const TemporaryWorkingDirectory directory;
  directory.write("arm.urdf", text);
  return error_of([] { load_urdf("arm.urdf"); });
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
      {"<link/>", "Encountered URDF link without a name attribute"},
      {"<link name='a'><inertial><mass/></inertial></link>", "Failed to parse mass for link 'a'"},
      {"<link name='a'><inertial><mass value='1kg'/></inertial></link>",
       "Failed to parse mass for link 'a'"},
      {links + joint(good, "link='b'", "<origin xyz='1 2 3m'/>"),
       "Failed to parse xyz/rpy vector from '1 2 3m'"},
      {links + joint(good, "link='b'", "<origin rpy='0 inf 0'/>"),
       "Failed to parse xyz/rpy vector from '0 inf 0'"},
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

TEST(Urdf, ReadsLimitsAxesAndInertia) {
  const TemporaryWorkingDirectory directory;
  directory.write("arm.urdf", R"(<robot>
    <link name='a'/>
    <link name='b'><inertial><origin xyz='1 2 3' rpy='0 0 1.5707963267948966'/><mass value='2'/>
      <inertia ixx='1' ixy='0' ixz='0' iyy='2' iyz='0' izz='3'/></inertial></link>
    <link name='c'/><link name='d'/><link name='e'/>
    <joint name='j1' type='revolute'><parent link='a'/><child link='b'/>
      <axis xyz='0 3 4'/><limit lower='-1' upper='2'/></joint>
    <joint name='j2' type='continuous'><parent link='b'/><child link='c'/>
      <limit lower='-1' upper='2'/></joint>
    <joint name='j3' type='prismatic'><parent link='c'/><child link='d'/>
      <limit upper='2'/></joint>
    <joint name='j4' type='revolute'><parent link='d'/><child link='e'/>
      <limit lower='-2.8 rad' upper='2'/></joint></robot>)");
  const UrdfDescription urdf = load_urdf("arm.urdf");
  ASSERT_EQ(urdf.joints.size(), 4U);
  EXPECT_TRUE(urdf.joints[0].has_limits);
  EXPECT_NEAR(urdf.joints[0].axis[2], 0.8, 1e-15);
  EXPECT_FALSE(urdf.joints[1].has_limits);
  EXPECT_EQ(urdf.joints[1].axis, (Triple{0, 0, 1}));
  EXPECT_FALSE(urdf.joints[2].has_limits);
  EXPECT_TRUE(urdf.joints[2].reports.empty()) << "a missing limit is allowed";
  EXPECT_FALSE(urdf.joints[3].has_limits);
  EXPECT_EQ(urdf.joints[3].reports,
            (std::vector<std::string>{"URDF joint 'j4': limit lower='-2.8 rad' is not numeric; the "
                                      "joint has no limits"}));
  const UrdfInertial& inertial = urdf.inertials.at("b");
  EXPECT_EQ(inertial.mass, 2.0);
  EXPECT_EQ(inertial.origin_xyz, (Triple{1, 2, 3}));
  EXPECT_EQ(inertial.iyy, 2.0);
}

TEST(Urdf, ReadsPointsAndInfinityUnderALocaleWithACommaAndRefusesTheComma) {
  const CommaLocale locale;
  const auto inertial = [](const std::string& text) {
    return "<robot><link name='a'/><link name='b'><inertial>" + text + "</inertial></link>" +
           joint("name='j' type='fixed'", "link='b'") + "</robot>";
  };
  EXPECT_EQ(urdf_error(inertial("<mass value='0,7'/>")), "Failed to parse mass for link 'b'");
  EXPECT_EQ(urdf_error(inertial("<origin xyz='0,7 0 0'/>")),
            "Failed to parse xyz/rpy vector from '0,7 0 0'");
  const TemporaryWorkingDirectory directory;
  directory.write("arm.urdf", inertial("<origin xyz=' 0.7 1e-1\t-2 end'/><mass value='INF'/>"));
  const UrdfInertial read = load_urdf("arm.urdf").inertials.at("b");
  EXPECT_EQ(read.origin_xyz, (Triple{0.7, 0.1, -2.0}));
  EXPECT_TRUE(std::isinf(read.mass));
}

}  // namespace
}  // namespace kelvara::description
