#include "motion/joint_profile.hpp"

#include <algorithm>

namespace kelvara::motion {

void JointProfile::append(double duration_s, double jerk) {
  if (duration_s > 0.0) {
    pieces_[count_] = {duration_s_, duration_s, jerk, end_};
    ++count_;
    end_ = end_.after(duration_s, jerk);
    duration_s_ += duration_s;
  }
}

void JointProfile::close(double target) {
  end_ = {target, 0.0, 0.0};
  JointState state = end_;
  for (std::size_t k = count_; k > tail_; --k) {
    Piece& piece = pieces_[k - 1];
    state = state.after(-piece.duration_s, piece.jerk);
    piece.begin = state;
  }
}

JointState JointProfile::at(double time_s) const {
  if (time_s >= duration_s_ || count_ == 0) {
    return end_;
  }
  std::size_t k = count_ - 1;
  while (k > 0 && time_s < pieces_[k].begin_s) {
    --k;
  }
  return pieces_[k].begin.after(std::max(time_s - pieces_[k].begin_s, 0.0), pieces_[k].jerk);
}

}  // namespace kelvara::motion
