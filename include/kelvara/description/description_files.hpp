#pragma once

#include <string>

namespace kelvara {

/// The two robot-description files that a model was read from: canonical absolute paths.
struct DescriptionFiles {
  std::string urdf_path;      // links, joints and their limits
  std::string settings_path;  // tool, payload, gains, limits and motor signs
};

}  // namespace kelvara
