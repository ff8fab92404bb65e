#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "simulation/simulated_arm/simulated_arm.hpp"

namespace kelvara::simulation {

/// Writes where the bodies of a scene are to a file, as comma-separated lines "time_s,name,x,y,z,
/// roll,pitch,yaw": the system clock's time as in candump's logs, m, rad. A body has a line at the
/// start and, up to twenty times per second, whenever it has moved by more than 0.1 mm or 1 mrad;
/// its last line is where it is.
class BodyReport {
 public:
  /// Empties the file.
  /// @throws std::runtime_error when it cannot be written.
  BodyReport(const std::string& path, const Scene& scene);

  /// Must be called after every millisecond of physics.
  void update(const SimulatedArm& arm);

 private:
  struct Entry {
    std::string name;
    BodyPose written;
    bool is_written = false;
  };

  void write(const Entry& entry);

  std::ofstream file_;
  std::vector<Entry> entries_;
  int steps_ = 0;  // until the next look
};

}  // namespace kelvara::simulation
