#include "simulation/simulated_arm/body_report.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iomanip>
#include <locale>
#include <stdexcept>

namespace kelvara::simulation {
namespace {

constexpr int kPeriodSteps = 50;    // of 1 ms
constexpr double kDistance = 1e-4;  // m
constexpr double kAngle = 1e-3;     // rad

bool differ(const Triple& a, const Triple& b, double limit) {
  return !std::equal(a.begin(), a.end(), b.begin(),
                     [limit](double x, double y) { return std::abs(x - y) <= limit; });
}

double now_s() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

}  // namespace

BodyReport::BodyReport(const std::string& path, const Scene& scene) : file_(path) {
  file_.imbue(std::locale::classic());
  file_ << "time_s,name,x,y,z,roll,pitch,yaw" << std::endl;
  if (!file_) {
    throw std::runtime_error(path + ": cannot be written");
  }
  for (const Body& body : scene.bodies) {
    entries_.push_back({body.name, {}});
  }
}

void BodyReport::update(const SimulatedArm& arm) {
  if (--steps_ > 0) {
    return;
  }
  steps_ = kPeriodSteps;
  for (Entry& entry : entries_) {
    const BodyPose pose = arm.body_pose(entry.name);
    if (!entry.is_written || differ(pose.position, entry.written.position, kDistance) ||
        differ(pose.rpy, entry.written.rpy, kAngle)) {
      entry.written = pose;
      entry.is_written = true;
      write(entry);
    }
  }
}

void BodyReport::write(const Entry& entry) {
  file_ << std::fixed << std::setprecision(6) << now_s() << ',' << entry.name;
  for (const Triple& triple : {entry.written.position, entry.written.rpy}) {
    for (const double value : triple) {
      file_ << ',' << std::setprecision(5) << value;
    }
  }
  file_ << std::endl;
}

}  // namespace kelvara::simulation
