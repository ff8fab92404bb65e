#include "simulation/virtual_can/descriptor.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace kelvara::simulation {

void throw_errno(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));  // NOLINT(concurrency-mt-unsafe)
}

Descriptor checked(int fd, const std::string& what) {
  if (fd < 0) {
    throw_errno(what);
  }
  return Descriptor(fd);
}

}  // namespace kelvara::simulation
