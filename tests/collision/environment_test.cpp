#include "kelvara/collision/environment.hpp"

#include <cmath>
#include <functional>
#include <random>

#include <Eigen/Geometry>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "support/edited_description.hpp"
#include "support/outcomes.hpp"

namespace kelvara {
namespace {

using Joints = std::array<double, 6>;
using testing::HasSubstr;
using testing::StartsWith;

// At zero angles: the tips of the jaws, and the height of joints 3 to 6.
constexpr double kTipX = 0.26498 + 0.08415 + 0.124 + 0.146;
constexpr double kJawY = 0.025;
constexpr double kArmZ = 0.0625 + 0.045 + 0.265;
constexpr Joints kBentDown{0.0, 0.9, 0.3, -0.3, 0.0, 0.0};

const RobotKinematics& model() {
  static const RobotKinematics kModel;
  return kModel;
}

/// From rest to rest by a polynomial of the fifth degree.
Plan plan_between(const Joints& from, const Joints& to, std::size_t periods) {
  const double duration = static_cast<double>(periods) * Plan::kSamplePeriodS;
  std::vector<PlanSample> samples(periods + 1);
  for (std::size_t k = 0; k <= periods; ++k) {
    const double s = static_cast<double>(k) / static_cast<double>(periods);
    for (std::size_t i = 0; i < from.size(); ++i) {
      const double d = to[i] - from[i];
      samples[k].q[i] = from[i] + d * s * s * s * (10.0 + s * (6.0 * s - 15.0));
      samples[k].dq[i] = d * 30.0 * s * s * (1.0 - s) * (1.0 - s) / duration;
      samples[k].ddq[i] = d * 60.0 * s * (1.0 - s) * (1.0 - 2.0 * s) / (duration * duration);
    }
  }
  return Plan(samples, duration, {});
}

Plan at_rest(const Joints& q) { return Plan({PlanSample{q, {}, {}}}, 0.0, {}); }

std::string refusal(const Environment& environment, const Plan& plan) {
  return error_of([&] { environment.check(plan); });
}

TEST(Environment, MeasuresASphereAtTheJaw) {
  Environment environment(model());
  environment.add_sphere("ball", 0.05, {kTipX + 0.05 - 0.003, kJawY, kArmZ});
  const std::optional<Contact> contact = environment.contact_at({});
  ASSERT_TRUE(contact);
  EXPECT_EQ(contact->first + " " + contact->second, "link6 ball");
  EXPECT_NEAR(contact->depth_m, 0.003, 1e-6);
  EXPECT_NEAR(contact->point[0], kTipX - 0.0015, 1e-6);
  EXPECT_NEAR(contact->point[1], kJawY, 1e-3);
  EXPECT_NEAR(contact->point[2], kArmZ, 1e-3);

  environment.remove("ball");
  environment.add_sphere("ball", 0.05, {kTipX + 0.05 + 0.001, kJawY, kArmZ});
  EXPECT_FALSE(environment.contact_at({}));
  const Clearance clearance = environment.clearance(at_rest({}));
  EXPECT_NEAR(clearance.distance_m, 0.001, 1e-6);
  EXPECT_EQ(clearance.first + " " + clearance.second, "link6 ball");
  environment.set_margin(0.002);
  EXPECT_NEAR(environment.contact_at({}).value().depth_m, -0.001, 1e-6);
  EXPECT_EQ(refusal(environment, at_rest({})),
            "link6 comes within 1.0 mm of 'ball' 0.00 s after the start");
}

TEST(Environment, CarriesABodyWithTheToolOfTheModel) {
  // Also with a fixed joint in the chain, displaced and turned.
  const EditedDescription description;
  const std::string joint6 =
      "<joint name=\"joint6\" type=\"revolute\">\n    <parent link=\"link5\"/>";
  description.edit_urdf(
      joint6,
      "<link name=\"flange\"/><joint name=\"weld\" type=\"fixed\"><parent link=\"link5\"/>"
      "<child link=\"flange\"/><origin xyz=\"0 0.01 0\" rpy=\"0.1 0 0.2\"/></joint>"
      "<joint name=\"joint6\" type=\"revolute\"><parent link=\"flange\"/>");
  RobotKinematics edited((description.path() / "BrimloV2.SLDASM.urdf").string(),
                         (description.path() / "robot_kinematics.yaml").string());
  std::mt19937 random(1);
  std::uniform_real_distribution<double> angle(-0.7, 0.7);
  Environment environment(edited);
  environment.attach_box("part", {0.02, 0.02, 0.02}, {});
  for (int i = 0; i < 30; ++i) {
    Joints q{};
    for (double& value : q) {
      value = angle(random);
    }
    const std::vector<double> tool = edited.forwardKinematics_kdl({q.begin(), q.end()});
    const Eigen::Quaterniond turn(tool[6], tool[3], tool[4], tool[5]);
    const Eigen::Vector3d ball =
        Eigen::Vector3d(tool.data()) + turn * Eigen::Vector3d(0.0, 0.0, 0.02 - 0.001);
    environment.add_sphere("ball", 0.01, {ball.x(), ball.y(), ball.z()});
    const Contact contact = environment.contact_at(q).value();
    EXPECT_EQ(contact.first + " " + contact.second, "part ball") << i;
    EXPECT_NEAR(contact.depth_m, 0.001, 1e-6) << i;
    environment.remove("ball");
  }
}

TEST(Environment, RefusesAPlanIntoATableAndNamesTheContact) {
  Environment environment(model());
  environment.add_box("table", {0.5, 1.0, 0.04}, {{0.55, 0.0, 0.02}, {}});
  const Plan plan = plan_between({}, kBentDown, 800);
  const Contact contact = environment.first_contact(plan).value();
  EXPECT_FALSE(environment.contact_at(plan.at(contact.time_s - 0.002).q));
  EXPECT_TRUE(environment.contact_at(plan.at(contact.time_s + 0.002).q));
  EXPECT_GE(contact.depth_m, environment.contact_at(kBentDown).value().depth_m - 1e-6);
  try {
    environment.check(plan);
    FAIL() << "the plan passed";
  } catch (const MotionError& error) {
    EXPECT_EQ(error.code(), MotionErrorCode::kCollision);
    EXPECT_EQ(error.time_s(), contact.time_s);
    char text[80];
    std::snprintf(text, sizeof(text), "link6 touches 'table' %.2f s after the start, %.1f mm deep",
                  contact.time_s, 1e3 * contact.depth_m);
    EXPECT_STREQ(error.what(), text);
  }

  const Environment before = environment;
  environment.allow_contact("table", "link6");
  EXPECT_THAT(refusal(environment, plan), Not(HasSubstr("link6")));
  environment.remove("table");
  EXPECT_EQ(refusal(environment, plan), "");
  environment.set_floor(0.04);
  EXPECT_THAT(refusal(environment, plan), StartsWith("link6 touches the floor "));
  EXPECT_NEAR(environment.first_contact(plan)->time_s, contact.time_s, 1e-3);
  environment.set_floor(-1.0);
  EXPECT_EQ(refusal(environment, plan), "");
  EXPECT_THAT(refusal(before, plan), StartsWith("link6 touches 'table' "));
}

TEST(Environment, FindsASheetThatThePlanCrossesBetweenTwoSamples) {
  Environment environment(model());
  environment.add_box("sheet", {0.02, 0.001, 0.02}, {{kTipX - 0.01, 0.0, kArmZ}, {}});
  const Plan plan = plan_between({-1.2}, {0.9}, 4);
  for (const PlanSample& sample : plan.samples()) {
    ASSERT_FALSE(environment.contact_at(sample.q));
  }
  const Contact contact = environment.first_contact(plan).value();
  EXPECT_EQ(contact.first + " " + contact.second, "link6 sheet");
  EXPECT_TRUE(environment.contact_at(plan.at(contact.time_s + 1e-6).q));
  EXPECT_NEAR(contact.point[1], 0.0, 1e-3);
}

TEST(Environment, AgreesWithDenseSamplingOfRandomPlansFromFreeStarts) {
  std::mt19937 random(2);
  Environment environment(model());
  environment.set_floor(0.0);
  environment.add_box("post", {0.05, 0.05, 0.6}, {{0.35, 0.3, 0.3}, {0.0, 0.0, 0.4}});
  environment.add_capsule("rail", 0.03, 0.4, {{0.1, -0.35, 0.4}, {1.2, 0.3, 0.0}});
  for (int i = 0; i < 12; ++i) {
    Joints from{}, to{};
    do {
      for (std::size_t k = 0; k < from.size(); ++k) {
        std::uniform_real_distribution<double> angle(model().joint_lower()[k],
                                                     model().joint_upper()[k]);
        from[k] = 0.3 * angle(random);
        to[k] = angle(random);
      }
    } while (environment.contact_at(from));
    const Plan plan = plan_between(from, to, 200);
    double smallest = 1.0, first = -1.0;
    for (double time = 0.0; time <= plan.duration_s(); time += 0.001) {
      const Joints q = plan.at(time).q;
      const double distance = environment.clearance(at_rest(q)).distance_m;
      first = first < 0.0 && distance <= 0.0 ? time : first;
      smallest = std::min(smallest, distance);
    }
    const Clearance clearance = environment.clearance(plan);
    EXPECT_LE(clearance.distance_m, smallest + 5e-4) << i;
    EXPECT_NEAR(environment.clearance(at_rest(plan.at(clearance.time_s).q)).distance_m,
                clearance.distance_m, 1e-3)
        << i;
    const std::optional<Contact> contact = environment.first_contact(plan);
    ASSERT_EQ(contact.has_value(), first >= 0.0) << i;
    EXPECT_NEAR(contact ? contact->time_s : -1.0, first, 0.001 + 1e-9) << i;
  }
}

TEST(Environment, KnowsWhichLinksTouchByDesign) {
  Environment environment(model());
  EXPECT_EQ(environment.allowed_contacts().size(), 6U);
  EXPECT_FALSE(environment.contact_at({}));
  EXPECT_FALSE(environment.contact_at(kBentDown));
  const Joints folded{0.0, -1.5, 1.4, 1.7, 0.0, 0.0};
  EXPECT_TRUE(environment.contact_at(folded));
  environment.set_margin(0.1);  // not between links
  EXPECT_FALSE(environment.contact_at({}));
  environment.forbid_contact("link5", "link4");
  EXPECT_EQ(environment.contact_at({}).value().second, "link4");
}

TEST(Environment, RefusesBadArgumentsAndStaysAsItIs) {
  Environment environment(model());
  environment.add_box("table", {0.5, 1.0, 0.04}, {{0.55, 0.0, 0.02}, {}});
  environment.attach_box("part", {0.02, 0.02, 0.02}, {});
  const double nan = std::nan("");
  const std::vector<std::function<void()>> calls{
      [&] {
        environment.add_box("box", {0.1, 0.0, 0.1}, {});
      },
      [&] {
        environment.add_box("box", {0.1, nan, 0.1}, {});
      },
      [&] {
        environment.add_box("box", {0.1, 0.1, 0.1}, {{nan, 0, 0}, {}});
      },
      [&] { environment.add_sphere("ball", -0.1, {}); },
      [&] { environment.add_sphere("ball", 1e9, {}); },
      [&] {
        environment.add_sphere("ball", 0.1, {1e9, 0.0, 0.0});
      },
      [&] { environment.add_capsule("rail", 0.1, 0.0, {}); },
      [&] {
        environment.add_capsule("rail", 0.1, 0.1, {{}, {0, INFINITY, 0}});
      },
      [&] { environment.add_sphere("table", 0.1, {}); },
      [&] {
        environment.attach_box("link3", {0.1, 0.1, 0.1}, {});
      },
      [&] { environment.add_sphere("floor", 0.1, {}); },
      [&] { environment.add_sphere("", 0.1, {}); },
      [&] { environment.remove("box"); },
      [&] { environment.remove("link3"); },
      [&] { environment.remove("floor"); },
      [&] { environment.detach("table"); },
      [&] { environment.allow_contact("link6", "box"); },
      [&] { environment.forbid_contact("link6", "link6"); },
      [&] { environment.set_margin(-1e-3); },
      [&] { environment.set_floor(nan); },
      [&] { environment.check(Plan()); },
      [&] { environment.contact_at({nan}); },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) {
    EXPECT_THAT(error_of(calls[i]), StartsWith("invalid argument: ")) << i;
  }
  EXPECT_FALSE(environment.contact_at({}));
  environment.detach("part");
  environment.remove("table");
  EXPECT_FALSE(environment.first_contact(plan_between({}, kBentDown, 100)));
}

TEST(Environment, RefusesADescriptionThatItCannotCheck) {
  const EditedDescription description;
  const auto error_with = [&](const std::string& text, const std::string& replacement) {
    description.edit_urdf(text, replacement);
    const RobotKinematics edited((description.path() / "BrimloV2.SLDASM.urdf").string(), "");
    return error_of([&] { const Environment environment(edited); });
  };
  const std::string sphere =
      "<collision><geometry><sphere radius=\"0.01\"/></geometry></collision>";
  const std::string link = "<link name=\"link3\">";
  EXPECT_EQ(error_with(link, link + sphere), "");
  EXPECT_EQ(error_with(link, link + "<collision><geometry><mesh filename=\"a.stl\"/></geometry>"
                                    "</collision>"),
            "collision solid of URDF link 'link3': only box, cylinder and sphere are supported, "
            "not mesh");
  EXPECT_EQ(error_with("<box size=\"0.2 0.046 0.046\"/></geometry></collision>",
                       "<box size=\"0.2 0.046\"/></geometry></collision>"),
            "collision solid of URDF link 'link3': <box> needs 3 numbers in 'size'");
  EXPECT_EQ(error_with("type=\"revolute\"", "type=\"prismatic\""),
            "invalid argument: Environment: the arm must have six joints, all rotating");
}

}  // namespace
}  // namespace kelvara
