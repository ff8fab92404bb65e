#pragma once

#include <stdexcept>
#include <string>

/// What an action throws: its text, with "invalid argument: " or "length error: " before those; ""
/// when it throws nothing.
template <typename Action>
std::string error_of(Action action) {
  try {
    action();
  } catch (const std::invalid_argument& error) {
    return std::string("invalid argument: ") + error.what();
  } catch (const std::length_error& error) {
    return std::string("length error: ") + error.what();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}
