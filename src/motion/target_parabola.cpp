#include "motion/target_parabola.hpp"

#include <algorithm>

namespace kelvara::motion {

TargetParabola::TargetParabola(const Follow& stream, std::size_t first, std::size_t joint)
    : count_(Follow::kHistory - first), origin_(stream.targets.back().q[joint]) {
  const double last_s = stream.targets.back().time_s;
  const auto count = static_cast<double>(count_);
  for (std::size_t k = first; k < Follow::kHistory; ++k) {
    mean_s_ += (stream.targets[k].time_s - last_s) / count;
    mean_ += (stream.targets[k].q[joint] - origin_) / count;
  }
  mean_s_ += last_s;
  double third = 0.0;
  for (std::size_t k = first; k < Follow::kHistory; ++k) {
    const double u = stream.targets[k].time_s - mean_s_;
    variance_ += u * u / count;
    third += u * u * u / count;
  }
  skew_ = variance_ > 0.0 ? third / variance_ : 0.0;
  fit(stream, joint);
}

void TargetParabola::fit(const Follow& stream, std::size_t joint) {
  double slope = 0.0, bend = 0.0, norm = 0.0, all = 0.0;
  for (std::size_t k = Follow::kHistory - count_; k < Follow::kHistory; ++k) {
    const double u = stream.targets[k].time_s - mean_s_;
    const double q = stream.targets[k].q[joint] - origin_ - mean_;
    slope += u * q;
    bend += square(u) * q;
    norm += square(u) * square(u);
    all += q * q;
  }
  slope_ = count_ > 1 ? slope / (static_cast<double>(count_) * variance_) : 0.0;
  bend_ = count_ > 2 ? bend / norm : 0.0;
  explained_ = slope_ * slope + bend_ * bend;
  residual_ = std::max(all - explained_, 0.0);
}

}  // namespace kelvara::motion
