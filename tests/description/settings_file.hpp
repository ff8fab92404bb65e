#pragma once

#include <string>

#include "support/outcomes.hpp"
#include "support/temporary_directory.hpp"

/// The message that `load` fails with for a YAML file of this text, named FILE in the message.
template <typename Load>
std::string settings_error(const std::string& text, Load load) {
  const TemporaryWorkingDirectory directory;
  directory.write("FILE", text);
  return error_of([&] { load("FILE"); });
}
