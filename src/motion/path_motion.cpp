#include "motion/path_motion.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"

namespace kelvara::motion {
namespace {

constexpr double kTolerance = 1e-7;  // relative, of the joints' limits
constexpr int kLocalRounds = 12;     // of slowing down locally before the whole motion slows down
constexpr double kReserve = 0.98;    // a place that is too fast is slowed down by this much more
constexpr double kSlowdown = 1.02;   // of the whole motion, in one round
// A last step shorter than this would make differences of samples inaccurate.
constexpr double kMinLastStep = 1e-5;  // s

/// The shortest duration from `duration_s` on whose last step is not too short.
double with_whole_last_step(double duration_s) {
  const double last = std::fmod(duration_s, Plan::kSamplePeriodS);
  return last < kMinLastStep ? duration_s + kMinLastStep - last : duration_s;
}

/// By what the speed must be divided for the joints to keep their limits; 1 when they do.
double speed_excess(const PlanSample& before, const PlanSample& now, double step_s,
                    const MotionLimits& limits) {
  double ratio = 1.0;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double jerk = step_s > 0.0 ? (now.ddq[i] - before.ddq[i]) / step_s : 0.0;
    ratio = std::max({ratio, std::abs(now.dq[i]) / limits.velocity[i],
                      std::sqrt(std::abs(now.ddq[i]) / limits.acceleration[i]),
                      std::cbrt(std::abs(jerk) / limits.jerk[i])});
  }
  return ratio;
}

}  // namespace

PathMotion::PathMotion(std::vector<PathRun> runs, const MotionLimits& limits) : limits_(limits) {
  for (PathRun& run : runs) {
    SpeedProfile profile(run.limits.zones(JointShare::kProportional));
    runs_.push_back({std::move(run), std::move(profile)});
  }
  settle(0.0);
}

double PathMotion::total_s() const {
  double total = 0.0;
  for (const TimedRun& timed : runs_) {
    total += timed.profile.duration_s();
  }
  return total;
}

double PathMotion::duration_s() const { return with_whole_last_step(slowdown_ * total_s()); }

void PathMotion::stretch_to(double duration_s) {
  check_duration({duration_s}, this->duration_s());
  settle(duration_s);
}

void PathMotion::settle(double duration_s) {
  for (int round = 0;; ++round) {
    if (duration_s > 0.0) {
      check_duration({duration_s}, this->duration_s());
    }
    const auto excesses = take_samples(duration_s > 0.0 ? duration_s : this->duration_s());
    if (excesses.empty()) {
      return;
    }
    if (round < kLocalRounds) {
      slow_down(excesses);
    } else {
      slowdown_ *= kSlowdown;
    }
  }
}

PlanSample PathMotion::sample(double time_s, std::size_t& run, double& s) const {
  run = 0;
  while (run + 1 < runs_.size() && time_s > runs_[run].profile.duration_s()) {
    time_s -= runs_[run].profile.duration_s();
    ++run;
  }
  const SpeedState along = runs_[run].profile.at(time_s);
  const PathState path = runs_[run].run.path.at(along.s);
  s = along.s;
  PlanSample state;
  state.q = path.q;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    state.dq[i] = path.first[i] * along.speed;
    state.ddq[i] = path.second[i] * along.speed * along.speed + path.first[i] * along.acceleration;
  }
  return state;
}

std::vector<PathMotion::Excess> PathMotion::take_samples(double duration_s) {
  const double factor = duration_s / total_s();
  samples_.assign(count_plan_samples(duration_s), {});
  std::vector<Excess> excesses;
  std::size_t run = 0;
  double s = 0.0;
  for (std::size_t k = 0; k < samples_.size(); ++k) {
    const std::size_t run_before = run;
    const double s_before = s;
    const double time_s = plan_sample_time_s(k, duration_s);
    samples_[k] = sample(k + 1 < samples_.size() ? time_s / factor : HUGE_VAL, run, s);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      samples_[k].dq[i] /= factor;
      samples_[k].ddq[i] /= factor * factor;
    }
    const std::size_t before = k > 0 ? k - 1 : 0;
    const double step_s = time_s - plan_sample_time_s(before, duration_s);
    const double ratio = speed_excess(samples_[before], samples_[k], step_s, limits_);
    if (ratio > 1.0 + kTolerance) {
      add({run, run == run_before ? s_before : 0.0, s, ratio}, excesses);
    }
  }
  return excesses;
}

void PathMotion::add(const Excess& excess, std::vector<Excess>& excesses) {
  if (excesses.empty() || excesses.back().run != excess.run ||
      excesses.back().end != excess.begin) {
    excesses.push_back(excess);
    return;
  }
  excesses.back().end = excess.end;
  excesses.back().ratio = std::max(excesses.back().ratio, excess.ratio);
}

void PathMotion::slow_down(const std::vector<Excess>& excesses) {
  for (const Excess& excess : excesses) {
    TimedRun& timed = runs_[excess.run];
    if (timed.share == JointShare::kCurved) {
      timed.run.limits.relieve(excess.begin, excess.end, kReserve / excess.ratio);
    }
  }
  for (const Excess& excess : excesses) {
    TimedRun& timed = runs_[excess.run];
    timed.share = JointShare::kCurved;
    timed.profile = SpeedProfile(timed.run.limits.zones(timed.share));
  }
}

}  // namespace kelvara::motion
