#pragma once

#include <functional>
#include <mutex>
#include <random>
#include <vector>

#include "kelvara/arm_controller.hpp"

/// Calls of `ArmController` with random arguments, valid, unusual and invalid. Used by one thread;
/// instances of several threads share the mutex of what must not be called from two threads at
/// once.
class RandomCalls {
 public:
  RandomCalls(unsigned seed, std::mutex& serialised) : random_(seed), serialised_(serialised) {}

  /// Makes one call of any kind.
  /// @throws std::logic_error when a query returns NaN or an invalid argument is accepted.
  void call(ArmController& arm);
  /// Makes a query, or a command with invalid arguments.
  void call_without_moving(ArmController& arm);

  double between(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(random_); }
  std::vector<double> joints(double reach);

  long calls() const { return calls_; }
  long refused() const { return refused_; }

 private:
  double number();
  std::vector<double> numbers();
  void move(ArmController& arm);
  void move_planned(ArmController& arm);
  void move_tool(ArmController& arm);
  void move_gripper(ArmController& arm);
  void query(ArmController& arm);
  void call_invalid(ArmController& arm);
  void attempt(const std::function<void()>& action);

  std::mt19937 random_;
  std::mutex& serialised_;
  long calls_ = 0;
  long refused_ = 0;
};
