#include "simulation/simulated_arm/body_report.hpp"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/temporary_directory.hpp"

namespace kelvara::simulation {
namespace {

TEST(BodyReportTest, WritesABodyAtTheStartAndWhileItMoves) {
  const RobotDescription description = load_robot_description();
  const TemporaryWorkingDirectory directory;
  Body ball{.name = "ball", .solid = {}, .mass = 0.1};
  ball.solid = {Solid::Shape::kSphere, {0.05}, {0.5, 0.0, 0.3}, {}};
  Body post = ball;
  post.name = "post";
  post.mass = 0.0;
  post.solid.origin[0] = -0.5;
  const Scene scene{"", Table{}, {ball, post}};
  SimulatedArm arm(description, {.scene = scene});
  BodyReport report("bodies.csv", scene);
  for (int step = 0; step < 5000; ++step) {
    arm.advance(std::chrono::milliseconds(1));
    report.update(arm);
  }

  std::ifstream file("bodies.csv");
  std::string line, name, x, y, z;
  int balls = 0;
  int posts = 0;
  std::getline(file, line);
  EXPECT_EQ(line, "time_s,name,x,y,z,roll,pitch,yaw");
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string time;
    std::getline(std::getline(fields, time, ','), name, ',');
    std::getline(std::getline(std::getline(fields, x, ','), y, ','), z, ',');
    ++(name == "ball" ? balls : posts);
    if (name == "ball" && balls == 1) {
      EXPECT_NEAR(std::stod(z), 0.3, 1e-4);
    }
  }
  EXPECT_EQ(posts, 1) << "it is fixed";
  EXPECT_GT(balls, 5) << "it falls for 0.2 s";
  EXPECT_LT(balls, 40) << "it rests";
  EXPECT_EQ(name, "ball");
  EXPECT_NEAR(std::stod(z), 0.05, 0.001);
  EXPECT_THROW(BodyReport("none/bodies.csv", scene), std::runtime_error);
}

}  // namespace
}  // namespace kelvara::simulation
