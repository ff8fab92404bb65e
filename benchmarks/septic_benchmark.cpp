// A sampled timed move of 2 s at 400 Hz, beside the same polynomials as sums of powers of the time.

#include <cmath>
#include <vector>

#include <benchmark/benchmark.h>

#include "motion/septic_trajectory.hpp"

namespace {

constexpr double kDurationS = 2.0;
constexpr double kRateHz = 400.0;
const std::vector<double> kStart{0.0, 0.1, -0.2, 0.3, -0.4, 0.5};
const std::vector<double> kEnd{1.0, -0.3, 0.8, -0.9, 1.2, -2.0};

SeptupleTrajectory sampled() {
  return kelvara::motion::generate_septuple_trajectory(kStart, kEnd, kDurationS, kRateHz);
}

void SepticTrajectory(benchmark::State& state) {
  while (state.KeepRunning()) {
    benchmark::DoNotOptimize(sampled());
  }
}
BENCHMARK(SepticTrajectory)->Unit(benchmark::kMicrosecond);

struct Term {
  double factor, exponent;

  double at(double t) const { return factor * std::pow(t, exponent); }
};

/// The polynomial a4 t^4 + ... + a7 t^7 or, differentiated, one of its derivatives.
std::vector<Term> terms(double distance, int derivatives) {
  static constexpr double kFactors[] = {35.0, -84.0, 70.0, -20.0};
  std::vector<Term> result;
  for (int n = 4; n <= 7; ++n) {
    Term term{kFactors[n - 4] * distance / std::pow(kDurationS, n), static_cast<double>(n)};
    for (int d = 0; d < derivatives; ++d) {
      term.factor *= term.exponent;
      term.exponent -= 1.0;
    }
    result.push_back(term);
  }
  return result;
}

void fill_by_powers(SeptupleTrajectory& trajectory) {
  for (std::size_t j = 0; j < kStart.size(); ++j) {
    for (int series = 0; series < 3; ++series) {
      const auto sum = terms(kEnd[j] - kStart[j], series);
      auto& values = trajectory.joints[j][static_cast<std::size_t>(series)];
      for (std::size_t k = 0; k < values.size(); ++k) {
        const double t = trajectory.time[k];
        values[k] = (series == 0 ? kStart[j] : 0.0) + sum[0].at(t) + sum[1].at(t) + sum[2].at(t) +
                    sum[3].at(t);
      }
    }
  }
}

double largest_difference(const SeptupleTrajectory& a, const SeptupleTrajectory& b) {
  double largest = 0.0;
  for (std::size_t j = 0; j < a.joints.size(); ++j) {
    for (std::size_t series = 0; series < 3; ++series) {
      for (std::size_t k = 0; k < a.time.size(); ++k) {
        largest = std::max(largest, std::abs(a.joints[j][series][k] - b.joints[j][series][k]));
      }
    }
  }
  return largest;
}

/// Without the allocation of the result.
void SumsOfPowers(benchmark::State& state) {
  SeptupleTrajectory trajectory = sampled();
  while (state.KeepRunning()) {
    fill_by_powers(trajectory);
    benchmark::DoNotOptimize(trajectory);
  }
  if (largest_difference(trajectory, sampled()) > 1e-11) {  // the sums cancel towards the end
    state.SkipWithError("the sums of powers differ from the trajectory");
  }
}
BENCHMARK(SumsOfPowers)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
