// Shows everything in one run: home, a timed move, waypoints, poses, a streamed circle, planned
// motions (a joint move, a line and an arc, a stop and a change of speed), the gripper, floating
// (MIT mode only) and a low pose at the end; then prints the result of each step. The arm may be
// moved by hand while it floats. scripts/demo runs the tour on the simulated arm. Usage: tour
// INTERFACE [--fd] [--pos-vel]
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <kelvara/arm_controller.hpp>

#include "interrupt.hpp"
#include "tour/planned_motion.hpp"
#include "tour/results.hpp"

namespace {

using Clock = std::chrono::steady_clock;
using Pose = std::array<double, 6>;  // x, y, z in m; roll, pitch, yaw in rad
using Joints = std::vector<double>;

constexpr double kControlHz = 400.0;
constexpr double kRadius = 0.05;  // m, of the circle
constexpr double kHeight = 0.30;  // m, of its plane
constexpr double kTurnsPerSecond = 0.5;
const std::vector<double> kLevel{0.0, 0.0, 0.0};
const Joints kHome(6, 0.0);
const Joints kReach{0.6, 0.5, -0.4, 0.5, -0.6, 0.8};
const Joints kRest{0.0, 0.0, 1.38, -1.18, 0.0, 0.0};  // low, the tool just above the table
const std::vector<Joints> kWaypoints{{0.4, 0.2, -0.2, 0.3, 0.0, 0.0},
                                     {0.6, 0.4, 0.1, 0.0, 0.3, 0.5},
                                     {0.0, 0.6, -0.6, 0.3, 0.0, 0.0}};

double largest_difference(const Eigen::VectorXd& a, const Eigen::VectorXd& b) {
  return (a - b).cwiseAbs().maxCoeff();
}

Eigen::VectorXd to_eigen(const Joints& q) { return Eigen::Map<const Eigen::VectorXd>(q.data(), 6); }

class Tour {
 public:
  explicit Tour(const kelvara::ArmOptions& options)
      : floats_(options.mode == kelvara::damiao_motor::MIT_MODE) {
    announce("home, in 2 s");
    arm_ = std::make_unique<ArmController>(options);
    sleep_s(2.5);
    note_joints("home", kHome);
  }

  void run() {
    timed_move();
    waypoints();
    poses();
    circle();
    planned_motion();
    gripper();
    if (floats_) {
      floating();
    }
    end();
    results_.print();
  }

 private:
  void sleep_s(double seconds) { interrupt::wait(*arm_, seconds); }

  void announce(const std::string& what) {
    const double now = std::chrono::duration<double>(Clock::now() - start_).count();
    std::printf("[tour %6.2f s] %d of %d: %s\n", now, ++step_, floats_ ? 12 : 11, what.c_str());
    std::fflush(stdout);
  }

  void note_joints(const std::string& step, const Joints& target) {
    note(step, "largest joint error", largest_difference(arm_->get_joint(), to_eigen(target)),
         "rad");
  }

  void note(const std::string& step, const std::string& figure, double value, const char* unit) {
    results_.note(step, figure, value, unit);
  }

  void timed_move() {
    announce("a timed move, in 2 s");
    arm_->set_joint(kReach, 2.0);
    sleep_s(2.5);
    note_joints("timed move", kReach);
  }

  void waypoints() {
    announce("waypoints, at half the configured speed");
    arm_->move_joint_waypoints(kWaypoints, 0.0, /*speed_percent=*/0.5, kControlHz);
    const Clock::time_point begin = Clock::now();
    while (largest_difference(arm_->get_joint(), to_eigen(kWaypoints.back())) > 0.01 &&
           Clock::now() < begin + std::chrono::seconds(15)) {
      sleep_s(0.01);
    }
    note("waypoints, speed", "took", std::chrono::duration<double>(Clock::now() - begin).count(),
         "s");
    sleep_s(0.5);
    note_joints("waypoints, speed", kWaypoints.back());
    announce("the same path back and forth, in 4 s");
    std::vector<Joints> there_and_back(kWaypoints.rbegin(), kWaypoints.rend());
    there_and_back.insert(there_and_back.end(), kWaypoints.begin(), kWaypoints.end());
    arm_->move_joint_waypoints(there_and_back, /*time_sec=*/4.0, 0.0, kControlHz);
    sleep_s(4.5);
    note_joints("waypoints, time", kWaypoints.back());
  }

  void poses() {
    announce("a pose, and one 30 cm from it, 2 s each");
    go_to({0.50, -0.15, kHeight, 0.0, 0.0, 0.0});
    const Pose goal{0.50, 0.15, kHeight, 0.0, 0.0, 0.3};
    const Pose from = arm_->get_end_effector_pose();
    go_to(goal);
    const Pose at = arm_->get_end_effector_pose();
    note("pose", "distance moved", distance(from, at), "m");
    note("pose", "distance from the goal", distance(goal, at), "m");
    note("pose", "angle from the goal",
         std::hypot(at[3] - goal[3], at[4] - goal[4], at[5] - goal[5]), "rad");
  }

  void go_to(const Pose& pose) {
    arm_->set_end_effector_pose({pose[0], pose[1], pose[2]}, {pose[3], pose[4], pose[5]}, 2.0);
    sleep_s(2.5);
  }

  static double distance(const Pose& a, const Pose& b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
  }

  void circle() {
    go_to({0.50 + kRadius, 0.0, kHeight, 0.0, 0.0, 0.0});
    announce("a circle of 5 cm radius, three turns at 0.5 Hz, 200 poses a second");
    const Clock::time_point begin = Clock::now();
    double from_circle = 0.0;
    double from_plane = 0.0;
    for (auto next = begin; next < begin + std::chrono::seconds(6);
         next += std::chrono::milliseconds(5)) {
      interrupt::wait_until(*arm_, next);
      const double turns = kTurnsPerSecond * std::chrono::duration<double>(next - begin).count();
      const double angle = 2.0 * M_PI * turns;
      arm_->set_end_effector_pose_raw(
          {0.50 + kRadius * std::cos(angle), kRadius * std::sin(angle), kHeight}, kLevel);
      if (turns > 0.5) {
        const Pose at = arm_->get_end_effector_pose();
        const double off_plane = std::abs(at[2] - kHeight);
        const double off_radius = std::hypot(at[0] - 0.50, at[1]) - kRadius;
        from_plane = std::max(from_plane, off_plane);
        from_circle = std::max(from_circle, std::hypot(off_radius, off_plane));
      }
    }
    note("circle", "largest distance from it", from_circle, "m");
    note("circle", "largest distance from its plane", from_plane, "m");
  }

  void planned_motion() {
    tour::PlannedMotion planned(*arm_, results_);
    sleep_s(0.5);  // the arm reaches the stream's last pose
    announce("a planned joint move");
    planned.move_joints();
    announce("a line of 30 cm, and half a circle back");
    planned.draw_line_and_arc();
    announce("the line again, stopped halfway and continued at 40 % of its speed");
    planned.stop_and_continue();
  }

  void gripper() {
    announce("the gripper: open, closed, halfway");
    arm_->openGripper();
    note_jaws("open", 0.085);
    arm_->closeGripper();
    note_jaws("closed", 0.0);
    arm_->setGripperDistance(0.04, /*speed=*/10.0, /*force=*/0.2);
    note_jaws("halfway", 0.04);
  }

  void note_jaws(const std::string& where, double commanded_m) {
    sleep_s(1.5);
    note("gripper", where + ", distance off", std::abs(arm_->get_gripper_distance() - commanded_m),
         "m");
  }

  void floating() {
    announce("floating: untouched for 5 s, then move the arm by hand if you like, for 8 s");
    arm_->identify_gravity_compensation();
    sleep_s(0.2);
    const Eigen::VectorXd begin = arm_->get_joint();
    double drift = 0.0;
    for (int k = 0; k < 100; ++k) {
      sleep_s(0.05);
      drift = std::max(drift, largest_difference(arm_->get_joint(), begin));
    }
    note("floating", "largest drift in 5 s", drift, "rad");

    // The hand leaves the arm where its last motion ends.
    const Eigen::VectorXd before = arm_->get_joint();
    Eigen::VectorXd left_at = before;
    for (int k = 0; k < 160; ++k) {
      sleep_s(0.05);
      if (arm_->get_joint_velocities().cwiseAbs().maxCoeff() > 0.05) {
        left_at = arm_->get_joint();
      }
    }
    note("floating", "moved by hand by", largest_difference(left_at, before), "rad");
    note("floating", "from where it was left", largest_difference(arm_->get_joint(), left_at),
         "rad");
  }

  void end() {
    announce("to a low pose, and the end: the motors are disabled, the arm sinks");
    arm_->set_joint(kRest, 3.0);
    sleep_s(3.3);
    note_joints("low pose", kRest);
    arm_->cleanup();
  }

  bool floats_;
  Clock::time_point start_ = Clock::now();
  int step_ = 0;
  tour::Results results_;
  std::unique_ptr<ArmController> arm_;
};

}  // namespace

int main(int argc, char** argv) {
  kelvara::ArmOptions options;
  options.with_gripper = true;
  options.go_home = true;
  bool usable = argc > 1 && argv[1][0] != '-';
  for (const std::string& word : std::vector<std::string>(argv + (usable ? 2 : 1), argv + argc)) {
    options.can_fd = options.can_fd || word == "--fd";
    options.mode = word == "--pos-vel" ? kelvara::damiao_motor::POS_VEL_MODE : options.mode;
    usable = usable && (word == "--fd" || word == "--pos-vel");
  }
  if (!usable) {
    std::cerr << "usage: tour INTERFACE [--fd] [--pos-vel]\n";
    return 2;
  }
  options.interface = argv[1];
  try {
    interrupt::catch_signals();
    Tour(options).run();
  } catch (const std::exception& error) {
    std::cerr << "tour: " << error.what() << '\n';
    return 1;
  }
}
