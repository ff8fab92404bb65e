#pragma once

#include <exception>
#include <string>

/// The text of the exception that `action` throws.
template <typename Action>
std::string error_message(Action action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no error";
}
