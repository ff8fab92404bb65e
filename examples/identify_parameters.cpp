// Identifies the arm's dynamics: moves it so that every parameter shows, estimates what the torques
// tell of the inertial parameters and of the joints' friction by least squares, and judges that on
// a second, different motion. The arm stays between 10 cm and 80 cm above the table. Usage:
// identify_parameters INTERFACE [OUTPUT.csv]
#include <array>
#include <chrono>
#include <cmath>
#include <exception>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Eigen/Core>
#include <Eigen/QR>

#include <kelvara/arm_controller.hpp>
#include <kelvara/dynamics/standard_regressor_qor0815.hpp>

namespace {

using Clock = std::chrono::steady_clock;
using Joints = Eigen::Matrix<double, 6, 1>;
using Rows = Eigen::Matrix<double, Eigen::Dynamic, 6>;  // one row for each instant

constexpr double kWaypointS = 1.2;      // from one waypoint to the next, on average
constexpr double kArrivedWithin = 0.1;  // rad
constexpr double kPeriodS = 0.005;      // of the samples
constexpr double kSmoothingS = 0.030;   // standard deviation of the Gaussian that all signals pass
constexpr double kLongestGapS = 0.012;  // between samples that count as in time
constexpr int kInertial = 60;
constexpr int kColumns = kInertial + 18;  // and each joint's viscous and dry friction and rotor
constexpr double kDrySpeed = 0.015;       // rad/s, at which dry friction is three quarters there
constexpr double kRankThreshold = 1e-4;   // of a combination of columns, for unit columns

// ---- The exciting motion ----

/// Poses drawn at random, with the tool above the table wherever the arm passes between them.
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

struct Sample {
  double time_s;
  Joints q, dq, torque;
};

bool same_feedback(const Sample& a, const Sample& b) {
  return a.q == b.q && a.dq == b.dq && a.torque == b.torque;
}

/// Moves through random waypoints and records each new feedback. One that is read twice alike is
/// whole: none of its parts came from the feedback after it.
std::vector<Sample> record_motion(ArmController& arm, const std::string& name, unsigned seed,
                                  int duration_s) {
  const auto waypoints = draw_waypoints(seed, static_cast<int>(duration_s / kWaypointS));
  arm.move_joint_waypoints(waypoints, duration_s, 0.0, 400.0);
  std::vector<Sample> samples;
  Sample seen{};
  const auto start = Clock::now();
  for (int tick = 0; tick < 1000 * duration_s; ++tick) {
    if (tick % 2000 == 0) {
      std::cout << name << ": " << tick / 1000 << " of " << duration_s << " s" << std::endl;
    }
    std::this_thread::sleep_until(start + std::chrono::milliseconds(tick));
    const double t = std::chrono::duration<double>(Clock::now() - start).count();
    const Sample now{t, arm.get_joint(), arm.get_joint_velocities(), arm.get_joint_torques()};
    if (!same_feedback(now, seen)) {
      seen = now;
    } else if (samples.empty() || !same_feedback(seen, samples.back())) {
      samples.push_back(seen);
    }
  }
  const Joints goal = Eigen::Map<const Joints>(waypoints.back().data());
  if ((arm.get_joint() - goal).lpNorm<Eigen::Infinity>() > kArrivedWithin) {
    throw std::runtime_error("the arm did not follow its motion to the end; see the lines above");
  }
  return samples;
}

// ---- From samples to smooth motions ----

struct Motion {
  Eigen::VectorXd time_s;
  Rows q, dq, ddq, torque;
};

/// One signal of the samples at even times.
Rows at_even_times(const std::vector<Sample>& samples, Joints Sample::*signal) {
  const double begin = samples.front().time_s;
  const auto count = static_cast<Eigen::Index>((samples.back().time_s - begin) / kPeriodS);
  Rows rows(count, 6);
  std::size_t after = 1;
  for (Eigen::Index k = 0; k < count; ++k) {
    const double t = begin + static_cast<double>(k) * kPeriodS;
    while (samples[after].time_s < t) {
      ++after;
    }
    const Sample& a = samples[after - 1];
    const Sample& b = samples[after];
    const double share = (t - a.time_s) / (b.time_s - a.time_s);
    rows.row(k) = (1.0 - share) * a.*signal + share * b.*signal;
  }
  return rows;
}

/// Weighs each row with its neighbours by a Gaussian, which delays nothing.
Rows smooth(const Rows& rows) {
  const auto reach = static_cast<Eigen::Index>(4.0 * kSmoothingS / kPeriodS);
  Rows result = Rows::Zero(rows.rows(), 6);
  for (Eigen::Index k = 0; k < rows.rows(); ++k) {
    double total = 0.0;
    for (Eigen::Index n = std::max<Eigen::Index>(0, k - reach);
         n <= std::min(rows.rows() - 1, k + reach); ++n) {
      const double distance = static_cast<double>(n - k) * kPeriodS / kSmoothingS;
      const double weight = std::exp(-0.5 * distance * distance);
      result.row(k) += weight * rows.row(n);
      total += weight;
    }
    result.row(k) /= total;
  }
  return result;
}

/// The instants whose smoothed values hang on samples that all came in time.
std::vector<Eigen::Index> well_sampled(const std::vector<Sample>& samples, Eigen::Index count) {
  constexpr double kReachS = 3.0 * kSmoothingS;
  std::vector<Eigen::Index> instants;
  double poor_until_s = samples.front().time_s + kReachS;
  std::size_t next = 1;
  for (Eigen::Index k = 0; k < count; ++k) {
    const double t = samples.front().time_s + static_cast<double>(k) * kPeriodS;
    for (; next < samples.size() && samples[next - 1].time_s < t + kReachS; ++next) {
      if (samples[next].time_s - samples[next - 1].time_s > kLongestGapS) {
        poor_until_s = samples[next].time_s + kReachS;
      }
    }
    if (t >= poor_until_s && t + kReachS < samples.back().time_s) {
      instants.push_back(k);
    }
  }
  return instants;
}

Motion motion_of(const std::vector<Sample>& samples) {
  if (samples.size() < 100) {
    throw std::runtime_error("the motors gave no feedback to identify from");
  }
  const Rows dq = smooth(at_even_times(samples, &Sample::dq));
  Rows ddq = Rows::Zero(dq.rows(), 6);
  const Eigen::Index inner = dq.rows() - 2;
  ddq.middleRows(1, inner) = (dq.bottomRows(inner) - dq.topRows(inner)) / (2.0 * kPeriodS);
  using Eigen::all;
  const auto instants = well_sampled(samples, dq.rows());
  std::cout << "  " << instants.size() << " of " << dq.rows() << " instants were sampled in time\n";
  const auto end_s = kPeriodS * static_cast<double>(dq.rows() - 1);
  const Eigen::VectorXd time_s = Eigen::VectorXd::LinSpaced(dq.rows(), 0.0, end_s);
  return {time_s(instants), smooth(at_even_times(samples, &Sample::q))(instants, all),
          dq(instants, all), ddq(instants, all),
          smooth(at_even_times(samples, &Sample::torque))(instants, all)};
}

// ---- Least squares ----

/// What multiplies the parameters at one instant: the regressor, and the joints' drives beside it.
Eigen::Matrix<double, 6, kColumns> torque_matrix(const Motion& motion, Eigen::Index k) {
  Eigen::Matrix<double, 6, kColumns> matrix = Eigen::Matrix<double, 6, kColumns>::Zero();
  const Joints q = motion.q.row(k), dq = motion.dq.row(k), ddq = motion.ddq.row(k);
  standard_regressor_qor0815(q.data(), dq.data(), ddq.data(), matrix.data());
  for (int i = 0; i < 6; ++i) {
    matrix(i, kInertial + i) = dq[i];
    matrix(i, kInertial + 6 + i) = std::tanh(dq[i] / kDrySpeed);
    matrix(i, kInertial + 12 + i) = ddq[i];
  }
  return matrix;
}

struct Estimate {
  Eigen::VectorXd parameters;  // one of the sets that give the same torques
  Eigen::Index base_parameters = 0;
};

/// Least squares by QR with column pivoting. Each joint counts by the spread of its torque, and
/// each column by its length. What no torque tells apart stays out of the solution.
Estimate estimate(const Motion& motion) {
  const Eigen::Index count = motion.q.rows();
  const Joints spread =
      ((motion.torque.rowwise() - motion.torque.colwise().mean()).colwise().norm() /
       std::sqrt(static_cast<double>(count)))
          .transpose();
  if (!(spread.minCoeff() > 0.0)) {
    throw std::runtime_error("a joint's torque did not change; is its motor there?");
  }
  Eigen::MatrixXd matrix(6 * count, kColumns);
  Eigen::VectorXd torque(6 * count);
  for (Eigen::Index k = 0; k < count; ++k) {
    matrix.middleRows<6>(6 * k) = spread.cwiseInverse().asDiagonal() * torque_matrix(motion, k);
    torque.segment<6>(6 * k) = motion.torque.row(k).transpose().cwiseQuotient(spread);
  }
  const Eigen::VectorXd lengths =
      matrix.colwise().norm().unaryExpr([](double x) { return x > 0.0 ? x : 1.0; });
  Eigen::ColPivHouseholderQR<Eigen::MatrixXd> qr;
  qr.setThreshold(kRankThreshold);
  qr.compute(matrix * lengths.cwiseInverse().asDiagonal());
  return {qr.solve(torque).cwiseQuotient(lengths), qr.rank()};
}

Rows predict(const Motion& motion, const Eigen::VectorXd& parameters) {
  Rows torque(motion.q.rows(), 6);
  for (Eigen::Index k = 0; k < torque.rows(); ++k) {
    torque.row(k) = torque_matrix(motion, k) * parameters;
  }
  return torque;
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

void print_drives(const Estimate& found) {
  std::cout << "friction\n  joint   viscous [N·m·s/rad]   dry [N·m]\n" << std::setprecision(3);
  for (int i = 0; i < 6; ++i) {
    std::cout << "  " << i + 1 << std::setw(20) << found.parameters[kInertial + i] << std::setw(16)
              << found.parameters[kInertial + 6 + i] << '\n';
  }
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

void identify(const std::string& interface, const std::string& csv) {
  std::ofstream file(csv);
  if (!file) {
    throw std::runtime_error("cannot write " + csv);
  }
  std::vector<Sample> first, second;
  {
    ArmController arm(false, interface, false, kelvara::damiao_motor::MIT_MODE);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // the arm goes home
    first = record_motion(arm, "identification", 1, 24);
    second = record_motion(arm, "validation", 2, 16);
  }
  const Motion identification = motion_of(first);
  const Motion validation = motion_of(second);
  const Estimate found = estimate(identification);
  std::cout << found.base_parameters << " combinations of parameters found\n";
  print_drives(found);
  print_fit("identification", identification, predict(identification, found.parameters));
  const Rows predicted = predict(validation, found.parameters);
  print_fit("validation", validation, predicted);
  write_csv(file, validation, predicted);
  if (!file) {
    throw std::runtime_error("cannot write " + csv);
  }
  std::cout << "torques of the validation written to " << csv << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::cerr << "usage: identify_parameters INTERFACE [OUTPUT.csv]\n";
    return 2;
  }
  try {
    identify(argv[1], argc == 3 ? argv[2] : "identified_torques.csv");
  } catch (const std::exception& error) {
    std::cerr << "identify_parameters: " << error.what() << '\n';
    return 1;
  }
}
