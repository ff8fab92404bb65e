#include "identification/motion.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <stdexcept>

namespace identification {
namespace {

constexpr double kPeriodS = 0.005;      // of the resampled signals
constexpr double kSmoothingS = 0.030;   // standard deviation of the Gaussian window
constexpr double kLongestGapS = 0.012;  // between samples
constexpr double kDrySpeed = 0.015;     // rad/s; scale of the smoothed sign of the velocity

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

/// Averages each row with its neighbours under a Gaussian window; adds no delay.
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

/// The instants whose smoothed values depend only on samples without a gap between them.
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

}  // namespace

double smooth_sign(double velocity) { return std::tanh(velocity / kDrySpeed); }

Motion motion_of(const std::vector<Sample>& samples) {
  if (samples.size() < 100) {
    throw std::runtime_error("too little feedback from the motors");
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

}  // namespace identification
