// Shows parameter identification: moves the arm along an exciting trajectory, estimates the
// inertial and friction parameters from the measured torques by least squares, and validates the
// estimate on a second trajectory. Prints the fit and writes the torques of the validation to
// OUTPUT.csv (identified_torques.csv). Prints also the rotor inertia and the friction that the
// model of the description files lacks, as the part `joint_dynamics` of the settings file.
//
// SETTINGS.yaml replaces the settings file that is found. Let its mit_mode gains be a fifth of the
// usual ones: a motor reports its torque at the end of a command's period, when the joint has moved
// on, so kp times that angle is missing. The estimate takes it for less viscous friction.
//
// The arm stays between 10 cm and 80 cm above the table.
// Usage: identify_parameters INTERFACE [OUTPUT.csv [SETTINGS.yaml]]
#include <array>
#include <chrono>
#include <cmath>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <Eigen/Core>

#include <kelvara/arm_controller.hpp>

#include "identification/drives.hpp"
#include "identification/least_squares.hpp"
#include "identification/motion.hpp"
#include "interrupt.hpp"

namespace {

using namespace identification;
constexpr double kWaypointS = 1.2;      // from one waypoint to the next, on average
constexpr double kArrivedWithin = 0.1;  // rad

// ---- The exciting motion ----

/// Random joint angles; the tool stays above the table on every path between them.
std::vector<std::vector<double>> draw_waypoints(unsigned seed, int count) {
  static constexpr std::array<double, 6> kCenter{0.0, -0.1, -0.35, 0.1, 0.0, 0.0};  // rad
  static constexpr std::array<double, 6> kReach{1.2, 0.4, 0.5, 0.9, 1.2, 2.4};      // rad
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> share(-1.0, 1.0);
  std::vector<std::vector<double>> waypoints(static_cast<std::size_t>(count));
  for (std::vector<double>& waypoint : waypoints) {
    for (std::size_t i = 0; i < 6; ++i) {
      waypoint.push_back(kCenter[i] + kReach[i] * share(random));
    }
  }
  return waypoints;
}

// ---- Recording ----

bool same_feedback(const Sample& a, const Sample& b) {
  return a.q == b.q && a.dq == b.dq && a.torque == b.torque;
}

Sample sample_of(const kelvara::ArmState& state) {
  return {state.time_s, Joints(state.q.data()), Joints(state.dq.data()), Joints(state.tau.data())};
}

/// Moves through random waypoints and records each new feedback.
std::vector<Sample> record_motion(ArmController& arm, const std::string& name, unsigned seed,
                                  int duration_s) {
  const auto waypoints = draw_waypoints(seed, static_cast<int>(duration_s / kWaypointS));
  arm.move_joint_waypoints(waypoints, duration_s, 0.0, 400.0);
  std::vector<Sample> samples;
  const auto start = interrupt::Clock::now();
  for (int tick = 0; tick < 1000 * duration_s; ++tick) {
    if (tick % 2000 == 0) {
      std::cout << name << ": " << tick / 1000 << " of " << duration_s << " s" << std::endl;
    }
    interrupt::wait_until(arm, start + std::chrono::milliseconds(tick));
    const Sample sample = sample_of(arm.state());
    if (samples.empty() || !same_feedback(sample, samples.back())) {
      samples.push_back(sample);
    }
  }
  const Joints goal = Eigen::Map<const Joints>(waypoints.back().data());
  if ((arm.get_joint() - goal).lpNorm<Eigen::Infinity>() > kArrivedWithin) {
    throw std::runtime_error("the arm did not reach the end of its motion; see the lines above");
  }
  return samples;
}

// ---- Results ----

void print_fit(const std::string& name, const Motion& motion, const Rows& predicted) {
  const Rows error = motion.torque - predicted;
  const Rows varying = motion.torque.rowwise() - motion.torque.colwise().mean();
  std::cout << name << "\n  joint   RMS error [N·m]   explained variance [%]\n" << std::fixed;
  for (int i = 0; i < 6; ++i) {
    const double explained =
        100.0 * (1.0 - error.col(i).squaredNorm() / varying.col(i).squaredNorm());
    std::cout << "  " << i + 1 << std::setw(19) << std::setprecision(4)
              << error.col(i).norm() / std::sqrt(static_cast<double>(error.rows())) << std::setw(22)
              << std::setprecision(2) << explained << '\n';
  }
}

void print_friction(const Estimate& found) {
  std::cout << "friction\n  joint   viscous [N·m·s/rad]   dry [N·m]\n" << std::setprecision(3);
  for (int i = 0; i < 6; ++i) {
    std::cout << "  " << i + 1 << std::setw(20) << found.viscous_friction(i) << std::setw(16)
              << found.dry_friction(i) << '\n';
  }
}

/// The model of the description files, without and with the drives that it lacks.
void print_drives(const Motion& identification, const Motion& validation,
                  const RobotKinematics& model) {
  const Drives drives = fit_drives(identification, model_torques(identification, model));
  const Rows torques = model_torques(validation, model);
  print_fit("validation of the model of the description files", validation, torques);
  print_fit("the same with the drives below", validation,
            torques + drive_torques(validation, drives));
  print_settings(std::cout, drives);
}

void write_csv(std::ostream& file, const Motion& motion, const Rows& predicted) {
  file << "time_s";
  for (const char* kind : {"measured", "predicted"}) {
    for (int i = 1; i <= 6; ++i) {
      file << ',' << kind << '_' << i;
    }
  }
  const Eigen::IOFormat commas(6, Eigen::DontAlignCols, ",", ",");
  for (Eigen::Index k = 0; k < predicted.rows(); ++k) {
    file << '\n'
         << motion.time_s[k] << ',' << motion.torque.row(k).format(commas) << ','
         << predicted.row(k).format(commas);
  }
  file << std::endl;
}

void identify(const kelvara::ArmOptions& options, const std::string& csv) {
  std::ofstream file(csv);
  if (!file) {
    throw std::runtime_error("cannot write " + csv);
  }
  std::vector<Sample> first, second;
  {
    interrupt::catch_signals();
    ArmController arm(options);
    interrupt::wait(arm, 2.5);
    first = record_motion(arm, "identification", 1, 24);
    second = record_motion(arm, "validation", 2, 16);
  }
  const Motion identification = motion_of(first);
  const Motion validation = motion_of(second);
  const Estimate found = estimate(identification);
  std::cout << found.base_parameters << " identifiable combinations of parameters\n";
  print_friction(found);
  print_fit("identification", identification, predict(identification, found.parameters));
  const Rows predicted = predict(validation, found.parameters);
  print_fit("validation", validation, predicted);
  print_drives(identification, validation,
               RobotKinematics(options.urdf_path, options.settings_path));
  write_csv(file, validation, predicted);
  if (!file) {
    throw std::runtime_error("cannot write " + csv);
  }
  std::cout << "torques of the validation written to " << csv << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 4) {
    std::cerr << "usage: identify_parameters INTERFACE [OUTPUT.csv [SETTINGS.yaml]]\n";
    return 2;
  }
  try {
    kelvara::ArmOptions options;
    options.interface = argv[1];
    options.go_home = true;  // in 2 s
    options.settings_path = argc > 3 ? argv[3] : "";
    identify(options, argc > 2 ? argv[2] : "identified_torques.csv");
  } catch (const std::exception& error) {
    std::cerr << "identify_parameters: " << error.what() << '\n';
    return 1;
  }
}
