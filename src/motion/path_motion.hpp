#pragma once

#include <vector>

#include "kelvara/motion/planner.hpp"

#include "motion/joint_path.hpp"
#include "motion/path_limits.hpp"
#include "motion/speed_profile.hpp"

namespace kelvara::motion {

/// A path from rest to rest, with how fast it may be passed.
struct PathRun {
  JointPath path;
  PathLimits limits;
};

/// Runs one after the other over time, with every sample inside the joints' limits: first as if
/// only the tool's limits and the joints' share in proportion counted; where samples exceed a
/// limit, slower there; at the last resort slower everywhere.
class PathMotion {
 public:
  /// @param runs At least one.
  PathMotion(std::vector<PathRun> runs, const MotionLimits& limits);

  /// The shortest duration found, s.
  double duration_s() const;
  /// Takes longer by the same factor everywhere.
  /// @param duration_s At least `duration_s()`, but for rounding.
  /// @throws MotionError `kDurationTooShort`.
  void stretch_to(double duration_s);
  const std::vector<PlanSample>& samples() const { return samples_; }

 private:
  struct TimedRun {
    PathRun run;
    SpeedProfile profile;
  };
  /// A sample before the stretching of time.
  struct Moment {
    std::size_t run = 0;
    SpeedState along;
    PathState path;
    PlanSample state;
  };
  /// Where successive samples exceed a limit.
  struct Excess {
    std::size_t run;
    double begin, end;  // of the parameter
    Relief relief;      // what to slow down
    double ratio;       // by which the speed must be divided
  };

  void settle(double duration_s);
  double total_s() const;
  Moment moment_at(double time_s) const;
  std::vector<Excess> take_samples(double duration_s);
  Excess excess(const Moment& before, const Moment& now, double step_s) const;
  static void add(const Excess& excess, std::vector<Excess>& excesses);
  void slow_down(const std::vector<Excess>& excesses, JointShare share);

  std::vector<TimedRun> runs_;
  MotionLimits limits_;
  double slowdown_ = 1.0;  // of all runs
  std::vector<PlanSample> samples_;
};

}  // namespace kelvara::motion
