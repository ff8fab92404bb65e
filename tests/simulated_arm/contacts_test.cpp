// The simulated arm among bodies: what its jaws hold, and what stops it.

#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kelvara/kinematics/kinematics.hpp"
#include "simulation/simulated_arm/jaw_linkage.hpp"
#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {
namespace {

using Joints = SimulatedArm::Joints;
using std::chrono::milliseconds;

constexpr double kCubeEdge = 0.05;  // m
constexpr double kTilt = 1.0;       // rad, of the tool that grasps

Body cube_at(const Triple& place, double mass) {
  const Solid solid{Solid::Shape::kBox, {kCubeEdge, kCubeEdge, kCubeEdge}, place, {}};
  return {.name = "cube", .solid = solid, .mass = mass};
}

/// An arm whose joints run in position/velocity mode.
class ArmInScene {
 public:
  explicit ArmInScene(const Scene& scene, const Joints& start = {})
      : description_(load_robot_description()),
        arm(description_, {.with_gripper = true, .load_kg = 0.0, .start = start, .scene = scene}) {
    for (unsigned i = 0; i < kMotors.size(); ++i) {
      const auto id = static_cast<std::uint8_t>(kMotors[i].can_id);
      if (i != kGripper) {
        send(0x7FF, {id, 0, 0x55, 10, 2, 0, 0, 0});  // mode
      }
      send(id, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFC});
    }
    joints_to(start, milliseconds(1));
  }

  void joints_to(const Joints& q, milliseconds time, float limit = 1.0F) {
    for (std::size_t i = 0; i < q.size(); ++i) {
      const auto angle = static_cast<float>(q[i] * description_.motor_signs[i]);
      std::vector<std::uint8_t> data(8);
      std::memcpy(data.data(), &angle, sizeof(angle));
      std::memcpy(data.data() + 4, &limit, sizeof(limit));
      send(kMotors[i].can_id + 0x100U, data);
    }
    arm.advance(time);
  }

  /// Commands the jaws with 8 N·m/rad and 0.1 N·m·s/rad.
  void jaws_to(double opening, milliseconds time) {
    const double angle = jaw_motor_angle_at(opening / 2.0);
    const auto raw = static_cast<unsigned>(std::lround((angle + 12.5) / 25.0 * 0xFFFF));
    const auto kp = static_cast<unsigned>(std::lround(8.0 / 500.0 * 0xFFF));
    const auto kd = static_cast<unsigned>(std::lround(0.1 / 5.0 * 0xFFF));
    const auto byte = [](unsigned value) { return static_cast<std::uint8_t>(value & 0xFFU); };
    send(kMotors[kGripper].can_id,
         {byte(raw >> 8U), byte(raw), 0x7F, byte(0xF0U | kp >> 8U), byte(kp), byte(kd >> 4U),
          byte((kd & 0xFU) << 4U | 0x7U), 0xFF});
    arm.advance(time);
  }

  double jaw_opening() const { return 2.0 * jaw_stroke_at(arm.gripper_angle()); }

 private:
  void send(unsigned id, const std::vector<std::uint8_t>& data) {
    canfd_frame frame{};
    frame.can_id = id;
    frame.len = 8;
    std::copy(data.begin(), data.end(), frame.data);
    std::vector<canfd_frame> replies;
    arm.receive(frame, replies);
  }

  RobotDescription description_;

 public:
  SimulatedArm arm;
};

/// The joint angles with the tool at this place, tilted down.
Joints grasp_at(const Triple& place) {
  RobotKinematics model;
  std::vector<double> q;
  EXPECT_TRUE(model.solve_ik_kdl({place.begin(), place.end()}, {0.0, kTilt, 0.0},
                                 {0.2, 0.7, 0.0, 0.3, 0.0, 0.0}, q));
  Joints joints{};
  std::copy_n(q.begin(), joints.size(), joints.begin());
  return joints;
}

TEST(ContactsTest, JawsHoldACubeWhileTheArmLiftsItAndDropItWhenTheyOpen) {
  const Triple place{0.35, 0.05, kCubeEdge / 2.0};
  const Triple lifted{place[0], place[1], place[2] + 0.1};
  const Joints above = grasp_at(lifted);
  const auto run = [&] {
    ArmInScene scene({"", Table{}, {cube_at(place, 0.2)}}, above);
    scene.jaws_to(0.08, milliseconds(500));
    scene.joints_to(grasp_at(place), milliseconds(2000));
    scene.jaws_to(0.0, milliseconds(500));
    EXPECT_NEAR(scene.jaw_opening(), kCubeEdge, 0.001);
    EXPECT_GT(scene.arm.motor(kGripper).applied_torque(), 3.0) << "8 N·m/rad over 0.77 rad";

    scene.joints_to(above, milliseconds(2000));
    const Triple before = scene.arm.body_pose("cube").position;
    scene.arm.advance(std::chrono::seconds(2));
    const BodyPose held = scene.arm.body_pose("cube");
    for (std::size_t axis = 0; axis < 3; ++axis) {
      EXPECT_NEAR(held.position[axis], scene.arm.tool_position()[axis], 0.005);
      EXPECT_NEAR(held.position[axis], before[axis], 0.0005) << "it creeps";
      EXPECT_NEAR(held.rpy[axis], 0.0, 0.05);
    }

    scene.jaws_to(0.08, milliseconds(1000));
    const Triple dropped = scene.arm.body_pose("cube").position;
    EXPECT_NEAR(dropped[2], kCubeEdge / 2.0, 0.001);
    return dropped;
  };
  EXPECT_EQ(run(), run()) << "the simulation is not deterministic";
}

TEST(ContactsTest, AFixedBodyStopsAJointAndShowsAsTorque) {
  constexpr double kRadius = 0.15;  // m, of the box, at the height of the stretched forearm
  constexpr double kForearmWidth = 0.046;
  const Triple place{kRadius, 0.0, 0.3725};
  ArmInScene scene({"", {}, {cube_at(place, 0.0)}}, {0.8});
  scene.joints_to({0.5}, milliseconds(1500));
  EXPECT_NEAR(scene.arm.joint_torques()[0], 0.0, 1.0) << "the box does not touch yet";
  scene.joints_to({-0.5}, milliseconds(2000));
  const double corner = kRadius - kCubeEdge / 2.0;
  const double touching = std::atan2(kCubeEdge / 2.0, corner) +
                          std::asin(kForearmWidth / 2.0 / std::hypot(corner, kCubeEdge / 2.0));
  EXPECT_NEAR(scene.arm.joint_positions()[0], touching, 0.005);
  EXPECT_NEAR(scene.arm.joint_velocities()[0], 0.0, 0.01);
  EXPECT_LT(scene.arm.joint_torques()[0], -10.0);
  EXPECT_EQ(scene.arm.body_pose("cube").position, place);
}

}  // namespace
}  // namespace kelvara::simulation
