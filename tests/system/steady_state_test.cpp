// The steady-state cycle uses nothing of the system but the bus, the clock and the sleep.

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>
#include <kdl/chainiksolverpos_lma.hpp>

#include "controller/arm_controller_impl.hpp"
#include "controller/control_cycle.hpp"
#include "controller/motion_starter.hpp"
#include "controller/torque_monitor.hpp"
#include "kelvara/kinematics/kinematics.hpp"
#include "support/captured_output.hpp"
#include "support/closed_loop.hpp"
#include "support/edited_description.hpp"
#include "support/replaced_stream.hpp"
#include "support/simulated_hardware.hpp"

#include "diagnostics/line.hpp"

namespace {

thread_local bool counting = false;
thread_local long allocations = 0;
thread_local long allocations_left = -1;  // before malloc fails; negative: it does not

bool is_used_up() {
  allocations_left -= allocations_left > 0 ? 1 : 0;
  return allocations_left == 0;
}

}  // namespace

// Every allocation of the process comes through here: C++'s operator new, Eigen's, the C library's.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
  allocations += counting ? 1 : 0;
  return is_used_up() ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  allocations += counting ? 1 : 0;
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) {
  allocations += counting ? 1 : 0;
  return __libc_realloc(pointer, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  allocations += counting ? 1 : 0;
  return __libc_memalign(alignment, size);
}
}

namespace {

using kelvara::damiao_motor::ControlMode;
using kelvara::motion::TimePoint;

struct SteadyState : ::testing::TestWithParam<ControlMode> {};

TEST_P(SteadyState, CyclesAllocateNothing) {
  const EditedDescription description;  // clipping is an event, and reported
  description.edit("gravity_tau_limits: [",
                   "gravity_tau_limits: [1e3, 1e3, 1e3, 1e3, 1e3, 1e3]  # [");
  ClosedLoop loop(GetParam());
  ArmController::Impl& impl = *loop.impl;
  impl.publish_gripper_distance_command(0.0);
  const auto allocations_of = [&](int cycles) {
    allocations = 0;
    for (int k = 0; k < cycles; ++k) {
      counting = true;
      const int frames = loop.command();
      counting = false;
      loop.answer(frames);
    }
    return allocations;
  };
  const std::vector<double> somewhere(6, 0.2);
  const std::vector<double> at_rest(6, 0.0);
  allocations_of(10);  // the first feedback of every motor is reported
  impl.publish_joint_trajectory_command(somewhere, 0.5);
  EXPECT_EQ(allocations_of(300), 0) << "a timed move and the hold after it";
  impl.publish_joint_raw_command(at_rest, at_rest);
  EXPECT_EQ(allocations_of(100), 0) << "a joint target";
  allocations_of(1000);
  const auto planner = impl.motions->planner({1.0, 0.0});
  for (const bool whole : {true, false}) {
    const kelvara::JointArray start = impl.state.standing().state.q;
    kelvara::JointArray target = start;
    target[0] += 0.1;
    impl.motions->execute(planner.plan_joint(start, target));
    EXPECT_EQ(allocations_of(whole ? 400 : 20), 0) << "a plan, its end and the hold after it";
    impl.motions->stop();
    EXPECT_EQ(allocations_of(200), 0) << "a stop";
  }
  kelvara::motion::Follow stream;
  stream.limits = {impl.setup.motion.acceleration, impl.setup.motion.jerk};
  stream.velocity = impl.setup.motion.velocity;
  impl.slot.follow(stream, {0.0, 3600.0, kelvara::JointArray{}});
  EXPECT_EQ(allocations_of(200), 0) << "a stream, and its end";
  counting = true;
  free(malloc(1));
  counting = false;
  EXPECT_EQ(allocations, 1) << "the counter counts";
}

TEST(MonitorPass, AllocatesNothing) {
  const ReplacedStream unread(STDERR_FILENO);
  kelvara::controller::TorqueMonitor monitor;
  std::size_t findings = 0;
  allocations = 0;
  counting = true;
  for (int pass = 0; pass < 400; ++pass) {
    findings += monitor.step(0.02, {25, 25, 25, 25, 25, 25}).size();
    kelvara::diagnostics::error_line() << "pass " << pass << ": " << 0.1 * pass << " N·m";
  }
  counting = false;
  EXPECT_EQ(allocations, 0);
  EXPECT_GT(findings, 1000U);
}

TEST(OutOfMemory, InAPlanKeepsTheCurrentCommand) {
  SimulatedHardware hardware(false);
  hardware.answer();
  CapturedOutput output;
  ArmController::Impl impl(TestBus::kInterface, false, nullptr, false,
                           kelvara::damiao_motor::MIT_MODE);
  impl.cycle->run_cycle(TimePoint{std::chrono::hours(1)});
  impl.publish_joint_trajectory_command(std::vector<double>(6, 0.1), 1.0);
  const auto number = [&impl] { return impl.slot.snapshot({}).number; };
  const auto current = number();
  const std::vector<std::vector<double>> waypoints(20, std::vector<double>(6, 0.3));
  long failures = 0;
  for (bool planned = false; !planned; ++failures) {
    EXPECT_EQ(number(), current);
    allocations_left = failures + 1;
    try {
      impl.publish_joint_waypoint_trajectory_command(waypoints, 2.0, 0.0, 400.0);
      planned = true;
    } catch (const std::bad_alloc&) {
    }
    allocations_left = -1;
  }
  EXPECT_GT(failures, 3) << "so many allocations can fail";
  EXPECT_NE(number(), current);
}

TEST(JacobianIk, AllocatesNothingForAnIteration) {
  CapturedOutput output;
  const RobotKinematics model;
  const Eigen::VectorXd seed = Eigen::VectorXd::Constant(6, 0.3);
  const auto allocations_of = [&](int iterations) {
    allocations = 0;
    counting = true;
    model.inverse_kinematics_jacobian({5, 0, 0}, {0, 0, 0}, seed, 1e-4, 1e-4, iterations, 0.005);
    counting = false;
    return allocations;
  };
  EXPECT_EQ(allocations_of(20), allocations_of(90)) << "the failure's line is as long";
}

TEST(KdlIk, AllocatesOnlyWhatKdlDoes) {
  const CapturedOutput output;
  RobotKinematics model;
  const std::vector<double> position{0.3, 0.1, 0.2}, rpy{0.0, 0.1, 0.2}, seed(6, 0.1);
  KDL::ChainIkSolverPos_LMA kdl(model.chain(), Eigen::Matrix<double, 6, 1>::Ones());
  KDL::JntArray kdl_seed(6), kdl_solution(6);
  kdl_seed.data.setConstant(0.1);
  const KDL::Frame target(KDL::Rotation::RPY(0.0, 0.1, 0.2), KDL::Vector(0.3, 0.1, 0.2));
  std::vector<double> solution(6);
  const auto allocations_of = [&](auto&& solve) {
    allocations = 0;
    counting = true;
    solve();
    counting = false;
    return allocations;
  };
  bool solved = false;
  const long own =
      allocations_of([&] { solved = model.solve_ik_kdl(position, rpy, seed, solution); });
  EXPECT_EQ(own, allocations_of([&] { kdl.CartToJnt(kdl_seed, target, kdl_solution); }));
  EXPECT_TRUE(solved);
}

INSTANTIATE_TEST_SUITE_P(BothModes, SteadyState,
                         ::testing::Values(kelvara::damiao_motor::MIT_MODE,
                                           kelvara::damiao_motor::POS_VEL_MODE));

}  // namespace
