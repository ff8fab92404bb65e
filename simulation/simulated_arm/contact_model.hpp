#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "simulation/simulated_arm/arm_model.hpp"

namespace kelvara::simulation {

/// The parts of the model that collide, in MuJoCo's format. Each is empty without contacts.
class ContactModel {
 public:
  /// @throws std::runtime_error when the URDF has a shape that MuJoCo cannot collide, or no fingers
  ///         that jaws could be made of.
  ContactModel(const RobotDescription& description, const Contacts* contacts);

  std::string options() const;                // ends the <option> element
  std::string base() const;                   // the arm's base, for the world body
  std::string link(std::size_t index) const;  // the shapes of one link
  std::string jaws() const;                   // for the last link
  std::string scene() const;                  // for the world body
  std::string constraints() const;

 private:
  void find_fingers();
  bool is_finger(std::size_t solid) const;

  const RobotDescription& description_;
  const Contacts* contacts_;
  std::array<std::size_t, 2> fingers_{};  // left and right: solids of the last link
};

}  // namespace kelvara::simulation
