#include "collision/joint_travel.hpp"

#include <algorithm>
#include <cmath>

namespace kelvara::collision {

JointTravel travel_between(const PlanSample& from, const PlanSample& to, double period_s) {
  constexpr double kDegree = 5.0;
  const double h = period_s;
  JointTravel travel;
  for (std::size_t i = 0; i < kJointCount; ++i) {
    const double first = from.q[i] + h * from.dq[i] / 5.0;
    const double last = to.q[i] - h * to.dq[i] / 5.0;
    const std::array<double, 6> control{from.q[i],
                                        first,
                                        first + h * (from.dq[i] + h * from.ddq[i] / 4.0) / 5.0,
                                        last - h * (to.dq[i] - h * to.ddq[i] / 4.0) / 5.0,
                                        last,
                                        to.q[i]};
    for (std::size_t k = 1; k < control.size(); ++k) {
      const double step = std::abs(control[k] - control[k - 1]);
      travel.whole[i] += step;
      travel.rate[i] = std::max(travel.rate[i], kDegree * step);
    }
  }
  return travel;
}

}  // namespace kelvara::collision
