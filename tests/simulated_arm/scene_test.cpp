#include "simulation/simulated_arm/scene.hpp"

#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "simulation/simulated_arm/simulated_arm.hpp"
#include "support/temporary_directory.hpp"

namespace kelvara::simulation {
namespace {

struct SceneTest : ::testing::Test {
  Scene read(const std::string& text) {
    std::ofstream(path) << text;
    return load_scene(path);
  }
  std::string error_of(const std::string& text) {
    try {
      SimulatedArm(description, {.scene = read(text)});
    } catch (const std::runtime_error& error) {
      const std::string message = error.what();
      EXPECT_EQ(message.rfind(path + ": ", 0), 0U) << message;
      return message.substr(std::min(message.size(), path.size() + 2));
    }
    return "";
  }

  RobotDescription description = load_robot_description();  // from the directory before
  TemporaryWorkingDirectory directory;
  std::string path = "scene.yaml";
};

TEST_F(SceneTest, ReadsTheTableAndEveryShape) {
  const Scene scene = read(R"(
table: {height: -0.1, friction: 0.5}
bodies:
  - {name: box, shape: box, size: [0.1, 0.2, 0.3], position: [1, 2, 0.05], rpy: [0, 0, 1.5], mass: 2}
  - {name: post, shape: cylinder, radius: 0.1, length: 0.4, position: [0, 1, 0.1], fixed: true}
  - {name: ball, shape: sphere, radius: 0.2, position: [1, 0, 1], mass: 0.5, friction: 0.1}
)");
  EXPECT_EQ(scene.table->height, -0.1);
  EXPECT_EQ(scene.table->friction, 0.5);
  ASSERT_EQ(scene.bodies.size(), 3U);
  SimulatedArm arm(description, {.scene = scene});
  EXPECT_EQ(arm.body_pose("box").position, (Triple{1.0, 2.0, 0.05}));
  EXPECT_NEAR(arm.body_pose("box").rpy[2], 1.5, 1e-12);
  EXPECT_THROW(arm.body_pose("bxo"), std::invalid_argument);
  arm.advance(std::chrono::seconds(3));
  EXPECT_EQ(arm.joint_positions(), SimulatedArm::Joints{}) << "in its cradle";
  EXPECT_EQ(arm.body_pose("post").position, (Triple{0.0, 1.0, 0.1}));
  EXPECT_NEAR(arm.body_pose("box").position[2], 0.05, 0.001) << "it stands";
  EXPECT_NEAR(arm.body_pose("ball").position[2], -0.1 + 0.2, 0.001) << "it has fallen";
}

TEST_F(SceneTest, RefusesAFileWithItsLineKeyAndReason) {
  const std::string body = "bodies:\n- {name: a, shape: box, size: [1, 1, 1], position: [2, 0, 3]";
  EXPECT_EQ(error_of("table: {height: 0}\nwalls: 4\n"), "line 2, walls: unknown key");
  EXPECT_EQ(error_of("table: {height: .nan}"), "line 1, table.height: must be -2 to 2");
  EXPECT_EQ(error_of("table: {height: 1m}"), "line 1, table.height: is not a number");
  EXPECT_EQ(error_of("table:\n  friction: 1\n"), "line 2, table.height: is missing");
  EXPECT_EQ(error_of("- table\n"), "line 1, scene: must be a map");
  EXPECT_EQ(error_of(body + "}"), "line 2, bodies[0].mass: is missing");
  EXPECT_EQ(error_of(body + ", mass: 1, mass: 2}"), "line 2, bodies[0].mass: stands twice");
  EXPECT_EQ(error_of(body + ", mass: 1, radius: 1}"), "line 2, bodies[0].radius: unknown key");
  EXPECT_EQ(error_of(body + ", mass: 1, fixed: true}"), "line 2, bodies[0].mass: unknown key");
  EXPECT_EQ(error_of(body + ", mass: 1}\n- {name: a, shape: sphere, radius: 1, fixed: true, "
                            "position: [4, 4, 4]}"),
            "line 3, bodies[1].name: another body has this name");
  EXPECT_NE(error_of("table: {height: 0"), "") << "not YAML";
  EXPECT_EQ(error_of("table: {height: 0.07}"),
            "the table and 'link1' overlap by 17.5 mm at the start");
  EXPECT_EQ(error_of("table: {height: 0}\n" + body +
                     ", mass: 1, rpy: [0, 0, 0.1]}\n"
                     "- {name: b, shape: sphere, radius: 0.3, mass: 1, position: [2, 0, 3.7]}"),
            "line 4, 'b' and 'a' overlap by 100 mm at the start");
  path = "none.yaml";
  EXPECT_THROW(load_scene(path), std::runtime_error);
}

}  // namespace
}  // namespace kelvara::simulation
