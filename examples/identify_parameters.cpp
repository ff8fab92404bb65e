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

constexpr double kPeriodS = 0.005;     // of the streamed targets, and of the samples
constexpr double kSmoothingS = 0.015;  // standard deviation of the Gaussian that all signals pass
constexpr double kRampS = 1.5;         // the motion grows from rest, and ends in rest
constexpr int kInertial = 60;
constexpr int kColumns =
    kInertial + 3 * 6;              // and viscous, dry friction, rotor inertia of each joint
constexpr double kDrySpeed = 0.03;  // rad/s, at which dry friction is three quarters there
constexpr double kRankThreshold = 1e-4;

// ---- The exciting motion ----

/// A sum of sines in each joint, around a pose with the tool well above the table.
class ExcitingMotion {
 public:
  ExcitingMotion(unsigned seed, double duration_s) : duration_s_(duration_s) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> phase(0.0, 2.0 * M_PI);
    std::uniform_real_distribution<double> stretch(0.85, 1.15);
    for (auto& waves : joints_) {
      for (std::size_t k = 0; k < waves.size(); ++k) {
        waves[k] = {2.0 * M_PI * (0.12 + 0.22 * static_cast<double>(k)) * stretch(random),
                    phase(random)};
      }
    }
  }

  double duration_s() const { return duration_s_; }

  std::vector<double> position(double t_s) const {
    static constexpr std::array<double, 6> kCenter{0.0, -0.15, -0.35, 0.1, 0.0, 0.0};
    static constexpr std::array<double, 6> kReach{0.9, 0.35, 0.45, 0.7, 0.9, 1.6};
    const double s = std::min({1.0, t_s / kRampS, (duration_s_ - t_s) / kRampS});
    const double ramp = s <= 0.0 ? 0.0 : s * s * s * (10.0 - 15.0 * s + 6.0 * s * s);
    std::vector<double> q(6);
    for (std::size_t i = 0; i < 6; ++i) {
      double sum = 0.0;
      for (const Wave& wave : joints_[i]) {
        sum += std::sin(wave.rate * t_s + wave.phase) / static_cast<double>(joints_[i].size());
      }
      q[i] = ramp * (kCenter[i] + 1.5 * kReach[i] * sum);
    }
    return q;
  }

  std::vector<double> velocity(double t_s) const {
    constexpr double kStepS = 1e-4;
    std::vector<double> dq = position(t_s + kStepS);
    const std::vector<double> before = position(t_s - kStepS);
    for (std::size_t i = 0; i < 6; ++i) {
      dq[i] = (dq[i] - before[i]) / (2.0 * kStepS);
    }
    return dq;
  }

 private:
  struct Wave {
    double rate;   // rad/s
    double phase;  // rad
  };
  double duration_s_;
  std::array<std::array<Wave, 4>, 6> joints_{};
};

// ---- Recording ----

struct Sample {
  double time_s;
  Joints q, dq, torque;
};

bool same_feedback(const Sample& a, const Sample& b) {
  return a.q == b.q && a.dq == b.dq && a.torque == b.torque;
}

/// Streams the motion and records each new feedback. One that is read twice alike is whole: none of
/// its parts came from the feedback after it.
std::vector<Sample> record(ArmController& arm, const ExcitingMotion& motion,
                           const std::string& name) {
  std::vector<Sample> samples;
  Sample seen{};
  int tick = 0;
  const auto start = Clock::now();
  for (double t = 0.0; t < motion.duration_s(); ++tick) {
    std::this_thread::sleep_until(start + std::chrono::milliseconds(tick));
    t = std::chrono::duration<double>(Clock::now() - start).count();
    if (tick % 5 == 0) {
      arm.set_joint_raw(motion.position(t), motion.velocity(t));
    }
    const Sample now{t, arm.get_joint(), arm.get_joint_velocities(), arm.get_joint_torques()};
    if (same_feedback(now, seen) && (samples.empty() || !same_feedback(seen, samples.back()))) {
      samples.push_back(seen);
    }
    if (!same_feedback(now, seen)) {
      seen = now;
    }
    if (tick % 4000 == 0) {
      std::cout << name << ": " << tick / 1000 << " of " << motion.duration_s() << " s\n";
    }
  }
  return samples;
}

double longest_gap_s(const std::vector<Sample>& samples) {
  double gap = 0.0;
  for (std::size_t i = 1; i < samples.size(); ++i) {
    gap = std::max(gap, samples[i].time_s - samples[i - 1].time_s);
  }
  return gap;
}

// ---- From samples to smooth motions ----

struct Motion {
  Rows q, dq, ddq, torque;  // every kPeriodS
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

Motion motion_of(const std::vector<Sample>& samples) {
  if (samples.size() < 100) {
    throw std::runtime_error("the motors gave no feedback to identify from");
  }
  Motion motion{smooth(at_even_times(samples, &Sample::q)),
                smooth(at_even_times(samples, &Sample::dq)),
                {},
                smooth(at_even_times(samples, &Sample::torque))};
  motion.ddq = Rows::Zero(motion.dq.rows(), 6);
  for (Eigen::Index k = 1; k + 1 < motion.dq.rows(); ++k) {
    motion.ddq.row(k) = (motion.dq.row(k + 1) - motion.dq.row(k - 1)) / (2.0 * kPeriodS);
  }
  return motion;
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
  Eigen::VectorXd
      parameters;  // one of the sets that give these torques, zeros where none is needed
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

void write_csv(const std::string& path, const Motion& motion, const Rows& predicted) {
  std::ofstream file(path);
  file << "time_s";
  for (const char* kind : {"measured", "predicted"}) {
    for (int i = 1; i <= 6; ++i) {
      file << ',' << kind << '_' << i;
    }
  }
  const Eigen::IOFormat commas(6, Eigen::DontAlignCols, ",", ",");
  for (Eigen::Index k = 0; k < predicted.rows(); ++k) {
    file << '\n'
         << static_cast<double>(k) * kPeriodS << ',' << motion.torque.row(k).format(commas) << ','
         << predicted.row(k).format(commas);
  }
  if (!(file << '\n').flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

void identify(const std::string& interface, const std::string& csv) {
  std::vector<Sample> first, second;
  {
    ArmController arm(false, interface, false, kelvara::damiao_motor::MIT_MODE);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // the arm goes home
    first = record(arm, ExcitingMotion(1, 20.0), "identification");
    second = record(arm, ExcitingMotion(2, 12.0), "validation");
  }
  std::cout << "longest gap between samples: " << std::fixed << std::setprecision(1)
            << 1000.0 * std::max(longest_gap_s(first), longest_gap_s(second)) << " ms\n";
  const Motion identification = motion_of(first);
  const Motion validation = motion_of(second);
  const Estimate found = estimate(identification);
  std::cout << found.base_parameters << " combinations of parameters found\n";
  print_drives(found);
  print_fit("identification", identification, predict(identification, found.parameters));
  const Rows predicted = predict(validation, found.parameters);
  print_fit("validation", validation, predicted);
  write_csv(csv, validation, predicted);
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
