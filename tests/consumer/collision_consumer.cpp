// Uses the installed component `collision` like an application.
#include <cstdio>

#include <kelvara/collision/environment.hpp>
#include <kelvara/kinematics/kinematics.hpp>

#if defined(KDL_CHAIN_HPP) || defined(TINYXML2_INCLUDED) || defined(FCL_EXPORT)
#error "A public header includes KDL, tinyxml2 or FCL."
#endif

int main() {
  const RobotKinematics model;
  kelvara::Environment environment(model);
  environment.set_floor(0.5);
  const kelvara::PlanCheck& check = environment;
  try {
    check.check(kelvara::Plan({kelvara::PlanSample{}}, 0.0, {}));
  } catch (const kelvara::MotionError& error) {
    std::printf("caught: %s\n", error.what());
    return error.code() == kelvara::MotionErrorCode::kCollision ? 0 : 1;
  }
  return 1;
}
