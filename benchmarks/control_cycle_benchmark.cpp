// What one MIT control cycle computes, and its parts, beside the same dynamics written with fresh
// vectors and matrices. Compare ratios within one run; absolute times depend on the machine.

#include <linux/can.h>

#include <array>
#include <vector>

#include <benchmark/benchmark.h>
#include <kdl/chaindynparam.hpp>
#include <kdl/jntarray.hpp>
#include <kdl/jntspaceinertiamatrix.hpp>

#include "controller/command_slot.hpp"
#include "controller/cycle_step.hpp"
#include "damiao_motor/can_frames.hpp"
#include "damiao_motor/motor_protocol.hpp"
#include "kelvara/damiao_motor/dm_motor_device.hpp"
#include "kelvara/kinematics/kinematics.hpp"

#include "description/arm_facts.hpp"

namespace {

using namespace kelvara;                // NOLINT(google-build-using-namespace): one program
using namespace kelvara::controller;    // NOLINT(google-build-using-namespace)
using namespace kelvara::damiao_motor;  // NOLINT(google-build-using-namespace)

constexpr JointArray kPose{0.3, 0.5, -0.4, 0.2, -0.3, 0.6};
constexpr JointArray kRates{0.5, -0.4, 0.3, 0.6, -0.2, 0.1};
constexpr JointArray kAccelerations{1.0, 2.0, -1.0, 0.5, 3.0, -2.0};

RobotKinematics& model() {
  static RobotKinematics robot;
  return robot;
}

/// Everything that a cycle works on, and its inputs.
struct Cycle {
  Cycle() {
    slot.publish(motion::TimedMove{kPose, 2.0});
    for (unsigned i = 0; i < 6; ++i) {
      const description::JointFacts& joint = description::kJoints[i];
      motors.emplace_back(joint.motor_type, joint.can_id, joint.master_id);
    }
    for (unsigned i = 0; i < 6; ++i) {
      devices.push_back(std::make_unique<DMCANDevice>(motors[i], kBroadcastId, false));
      feedback[i].can_id = motors[i].master_id;
      feedback[i].can_dlc = 8;
      const Payload data{static_cast<std::uint8_t>(0x11 + i), 0x90, 0x12, 0x80, 0x08, 0x12, 31, 29};
      std::copy(data.begin(), data.end(), feedback[i].data);
    }
  }

  void decode() {
    for (unsigned i = 0; i < 6; ++i) {
      devices[i]->callback(feedback[i]);
      instant.measured[i] = setup.motor_signs.to_joint(i, motors[i].position);
    }
  }

  motion::SetPoint evaluate() {
    instant.now += std::chrono::microseconds(1);
    const CommandSnapshot snapshot = slot.snapshot(instant);
    return motion::evaluate(snapshot.command, instant, setup.limits, motion::Approach::kReference);
  }

  void compute() {
    instant.now += std::chrono::microseconds(1);
    const CommandSnapshot snapshot = slot.snapshot(instant);
    record = compute_cycle(snapshot.command, instant, setup, model());
  }

  void pack(const MitCommands& commands) {
    for (unsigned i = 0; i < 6; ++i) {
      const Payload data = mit_payload(motors[i].type, commands[i]);
      frames[i] = make_can_frame(motors[i].can_id, data.data(), data.size());
    }
  }

  ControllerSetup setup = load_setup({.with_gripper = false, .mode = MIT_MODE}, model());
  CommandSlot slot;
  motion::Instant instant{};
  CycleRecord record;
  std::vector<Motor> motors;
  std::vector<std::unique_ptr<DMCANDevice>> devices;
  std::array<can_frame, 6> feedback{};
  std::array<can_frame, 6> frames{};
};

void WholeCycle(benchmark::State& state) {
  Cycle cycle;
  while (state.KeepRunning()) {
    cycle.decode();
    cycle.compute();
    cycle.pack(std::get<MitCommands>(cycle.record.sent));
    benchmark::DoNotOptimize(cycle.frames);
  }
}
BENCHMARK(WholeCycle);

void DecodeSixFeedbackFrames(benchmark::State& state) {
  Cycle cycle;
  while (state.KeepRunning()) {
    cycle.decode();
    benchmark::DoNotOptimize(cycle.instant.measured);
  }
}
BENCHMARK(DecodeSixFeedbackFrames);

void EvaluateSetPoint(benchmark::State& state) {
  Cycle cycle;
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(cycle.evaluate());
  }
}
BENCHMARK(EvaluateSetPoint);

void InverseDynamics(benchmark::State& state) {
  JointArray torque{};
  while (state.KeepRunning()) {
    model().inverse_dynamics(kPose.data(), kRates.data(), kAccelerations.data(), torque.data());
    benchmark::DoNotOptimize(torque);
  }
}
BENCHMARK(InverseDynamics);

/// The peer: the same three KDL calls, with vectors and matrices made for each.
void InverseDynamicsWithFreshVectors(benchmark::State& state) {
  KDL::ChainDynParam solver(model().chain(), KDL::Vector(0.0, 0.0, -9.81));
  while (state.KeepRunning()) {
    KDL::JntArray q(6), qd(6), qdd(6);
    for (unsigned i = 0; i < 6; ++i) {
      q(i) = kPose[i];
      qd(i) = kRates[i];
      qdd(i) = kAccelerations[i];
    }
    KDL::JntSpaceInertiaMatrix mass(6);
    KDL::JntArray coriolis(6), gravity(6), inertial(6);
    solver.JntToMass(q, mass);
    solver.JntToCoriolis(q, qd, coriolis);
    solver.JntToGravity(q, gravity);
    KDL::Multiply(mass, qdd, inertial);
    std::vector<double> torque(6);
    for (unsigned i = 0; i < 6; ++i) {
      torque[i] = inertial(i) + coriolis(i) + gravity(i);
    }
    benchmark::DoNotOptimize(torque);
  }
}
BENCHMARK(InverseDynamicsWithFreshVectors);

void PackSixMitFrames(benchmark::State& state) {
  Cycle cycle;
  MitCommands commands{};
  commands.fill({150.0, 4.0, 0.3, 0.5, 1.0});
  while (state.KeepRunning()) {
    cycle.pack(commands);
    benchmark::DoNotOptimize(cycle.frames);
  }
}
BENCHMARK(PackSixMitFrames);

}  // namespace

BENCHMARK_MAIN();
