#include "motion/target_noise.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::motion {
namespace {

// Three quarters of normally distributed values lie within so many standard deviations.
constexpr double kQuartile = 1.15;

}  // namespace

TargetNoise::TargetNoise(const Follow& stream, double period_s)
    : stream_(stream), first_(Follow::kHistory - stream.count + kOrder) {
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    weights_[k] = weights_at(k, period_s);
  }
}

double TargetNoise::deviation(std::size_t joint) const {
  std::array<double, Follow::kHistory> sizes{};
  std::size_t count = 0;
  for (std::size_t k = first_; k < Follow::kHistory; ++k) {
    double difference = 0.0;
    for (std::size_t i = 0; i <= kOrder; ++i) {
      difference +=
          weights_[k][i] * (stream_.targets[k - i].q[joint] - stream_.targets[k].q[joint]);
    }
    if (std::isfinite(difference)) {  // extreme stamps overflow the weights
      sizes[count++] = std::abs(difference);
    }
  }
  if (count == 0) {
    return 0.0;
  }
  // A target that is off makes so many differences large: they are left out.
  const std::size_t spared = std::max(count / 4, std::min(kOrder + 1, count - 1));
  auto* const quartile = sizes.begin() + (count - 1 - spared);
  std::nth_element(sizes.begin(), quartile, sizes.begin() + count);
  return *quartile / kQuartile;
}

TargetNoise::Weights TargetNoise::weights_at(std::size_t last, double period_s) const {
  Weights weights{};
  double sum = 0.0;
  for (std::size_t i = 0; i <= kOrder; ++i) {
    double product = 1.0;
    for (std::size_t j = 0; j <= kOrder; ++j) {
      const double apart_s = stream_.targets[last - i].time_s - stream_.targets[last - j].time_s;
      product *= i == j ? 1.0 : apart_s / period_s;
    }
    weights[i] = 1.0 / product;
    sum += weights[i] * weights[i];
  }
  for (double& weight : weights) {
    weight /= std::sqrt(sum);
  }
  return weights;
}

}  // namespace kelvara::motion
