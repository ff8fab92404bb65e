#include "kelvara/motion/plan_check.hpp"

namespace kelvara {

PlanCheck::~PlanCheck() = default;

}  // namespace kelvara
