#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include <kdl/jntarray.hpp>

/// What the solvers on a KDL chain share: joint vectors and errors.
namespace kelvara::kinematics {

inline std::vector<double> to_vector(const KDL::JntArray& array) {
  return {array.data.data(), array.data.data() + array.rows()};
}

/// @throws std::runtime_error with `message` unless `count` is `expected`.
inline void check_joint_count(std::size_t count, int expected, const char* message) {
  if (count != static_cast<std::size_t>(expected)) {
    throw std::runtime_error(message);
  }
}

/// @throws std::runtime_error for a negative code of a KDL solver.
inline void check_result(const char* function, int code) {
  if (code < 0) {
    throw std::runtime_error(std::string(function) + " failed with code " + std::to_string(code));
  }
}

}  // namespace kelvara::kinematics
