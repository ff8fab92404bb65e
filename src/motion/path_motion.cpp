#include "motion/path_motion.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "motion/plan_checks.hpp"
#include "motion/plan_report.hpp"

namespace kelvara::motion {
namespace {

constexpr double kTolerance = 1e-7;  // relative, of the joints' limits
constexpr int kLocalRounds = 20;     // of slowing down where a limit is exceeded
constexpr int kCurvedRounds = 10;    // with the joints' curves heeded, before all slows down
constexpr double kReserve = 0.98;    // a place that is too fast is slowed down by this much more
constexpr double kSlowdown = 1.02;   // of the whole motion, in one round
// A last step shorter than this would make differences of samples inaccurate.
constexpr double kMinLastStep = 1e-5;  // s

/// The shortest duration from `duration_s` on whose last step is not too short.
double with_whole_last_step(double duration_s) {
  const double last = std::fmod(duration_s, Plan::kSamplePeriodS);
  return last < 2.0 * kMinLastStep ? duration_s + 2.0 * kMinLastStep - last : duration_s;
}

/// The least jerk that leads a joint from one sample to the next.
struct StepJerk {
  StepJerk(const PlanSample& from, const PlanSample& to, std::size_t joint, double step_s) {
    if (step_s < kMinLastStep) {
      return;
    }
    const double mean = 0.5 * (from.ddq[joint] + to.ddq[joint]);
    of_ends = std::abs(to.ddq[joint] - from.ddq[joint]) / step_s;
    inside = std::abs((to.dq[joint] - from.dq[joint]) / step_s - mean) * 4.0 / step_s;
  }
  double of_ends = 0.0;  // for the accelerations of both samples
  double inside = 0.0;   // for their velocities: a curve may lie between them
};

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

void PathMotion::stretch_to(double duration_s) { settle(duration_s); }

void PathMotion::settle(double duration_s) {
  for (int round = 0;; ++round) {
    if (duration_s > 0.0) {
      check_duration({duration_s}, this->duration_s());
    }
    const auto excesses = take_samples(duration_s > 0.0 ? duration_s : this->duration_s());
    if (excesses.empty()) {
      return;
    }
    if (round < kLocalRounds + kCurvedRounds) {
      slow_down(excesses, round < kLocalRounds ? JointShare::kProportional : JointShare::kCurved);
    } else {
      slowdown_ *= kSlowdown;
    }
  }
}

PathMotion::Moment PathMotion::moment_at(double time_s) const {
  Moment moment;
  while (moment.run + 1 < runs_.size() && time_s > runs_[moment.run].profile.duration_s()) {
    time_s -= runs_[moment.run].profile.duration_s();
    ++moment.run;
  }
  moment.along = runs_[moment.run].profile.at(time_s);
  moment.path = runs_[moment.run].run.path.at(moment.along.s);
  const auto& [s, speed, acceleration] = moment.along;
  moment.state.q = moment.path.q;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    moment.state.dq[i] = moment.path.first[i] * speed;
    moment.state.ddq[i] =
        moment.path.second[i] * speed * speed + moment.path.first[i] * acceleration;
  }
  return moment;
}

PathMotion::Excess PathMotion::excess(const Moment& before, const Moment& now,
                                      double step_s) const {
  const double v = now.along.speed;
  const Relief ramp = before.along.acceleration + now.along.acceleration > 0.0
                          ? &PathCell::rise_relief
                          : &PathCell::fall_relief;
  Excess worst{now.run, now.run == before.run ? before.along.s : 0.0, now.along.s,
               &PathCell::speed_relief, 1.0};
  const auto consider = [&](double ratio, bool by_speed) {
    if (ratio > worst.ratio) {
      worst.ratio = ratio;
      worst.relief = by_speed ? &PathCell::speed_relief : ramp;
    }
  };
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double ddq = std::abs(now.state.ddq[i]);
    consider(std::abs(now.state.dq[i]) / limits_.velocity[i], true);
    consider(std::sqrt(ddq / limits_.acceleration[i]),
             std::abs(now.path.second[i]) * v * v > 0.5 * ddq);
    const StepJerk jerk(before.state, now.state, i, step_s);
    consider(std::cbrt(jerk.of_ends / limits_.jerk[i]),
             std::abs(now.path.third[i]) * v * v * v > 0.5 * jerk.of_ends);
    consider(std::cbrt(jerk.inside / limits_.jerk[i]), true);
  }
  return worst;
}

std::vector<PathMotion::Excess> PathMotion::take_samples(double duration_s) {
  const double factor = duration_s / total_s();
  samples_.assign(count_plan_samples(duration_s), {});
  std::vector<Excess> excesses;
  Moment before = moment_at(0.0);
  for (std::size_t k = 0; k < samples_.size(); ++k) {
    const double time_s = plan_sample_time_s(k, duration_s);
    Moment now = moment_at(k + 1 < samples_.size() ? time_s / factor : HUGE_VAL);
    for (std::size_t i = 0; i < kJointCount; ++i) {
      now.state.dq[i] /= factor;
      now.state.ddq[i] /= factor * factor;
    }
    samples_[k] = now.state;
    const double step_s = k > 0 ? time_s - plan_sample_time_s(k - 1, duration_s) : 0.0;
    const Excess found = excess(before, now, step_s);
    if (found.ratio > 1.0 + kTolerance) {
      add(found, excesses);
    }
    before = now;
  }
  return excesses;
}

void PathMotion::add(const Excess& excess, std::vector<Excess>& excesses) {
  if (excesses.empty() || excesses.back().run != excess.run ||
      excesses.back().relief != excess.relief || excesses.back().end != excess.begin) {
    excesses.push_back(excess);
    return;
  }
  excesses.back().end = excess.end;
  excesses.back().ratio = std::max(excesses.back().ratio, excess.ratio);
}

void PathMotion::slow_down(const std::vector<Excess>& excesses, JointShare share) {
  for (const Excess& excess : excesses) {
    runs_[excess.run].run.limits.relieve(excess.begin, excess.end, excess.relief,
                                         kReserve / excess.ratio);
  }
  for (const Excess& excess : excesses) {
    TimedRun& timed = runs_[excess.run];
    timed.profile = SpeedProfile(timed.run.limits.zones(share));
  }
}

}  // namespace kelvara::motion
