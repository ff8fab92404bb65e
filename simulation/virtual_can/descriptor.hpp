#pragma once

#include <string>
#include <utility>

#include "simulation/virtual_can/libc_calls.hpp"

namespace kelvara::simulation {

/// Owns a file descriptor and closes it.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { reset(); }

  void reset() {
    if (fd_ >= 0) {
      libc::close(std::exchange(fd_, -1));
    }
  }
  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

/// @throws std::runtime_error "what: errno's message".
[[noreturn]] void throw_errno(const std::string& what);

/// Takes ownership of the descriptor that a call returned.
/// @throws std::runtime_error "what: errno's message" when the call failed.
Descriptor checked(int fd, const std::string& what);

}  // namespace kelvara::simulation
