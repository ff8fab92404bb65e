#include "simulation/virtual_can/raw_options.hpp"

#include <linux/can/raw.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kelvara::simulation {
namespace {

/// The option that holds one number; null for others.
std::uint32_t SocketOptions::*find_member(int name) {
  switch (name) {
    case CAN_RAW_ERR_FILTER:
      return &SocketOptions::error_mask;
    case CAN_RAW_LOOPBACK:
      return &SocketOptions::loopback;
    case CAN_RAW_RECV_OWN_MSGS:
      return &SocketOptions::receive_own;
    case CAN_RAW_FD_FRAMES:
      return &SocketOptions::fd_frames;
    case CAN_RAW_JOIN_FILTERS:
      return &SocketOptions::join_filters;
    default:
      return nullptr;
  }
}

int set_filters(SocketOptions& options, const void* value, socklen_t length) {
  const std::size_t count = length / sizeof(can_filter);
  if (length % sizeof(can_filter) != 0 || count > kMaxFilters) {
    return EINVAL;
  }
  std::copy_n(static_cast<const can_filter*>(value), count, options.filters.begin());
  options.filter_count = static_cast<std::uint32_t>(count);
  return 0;
}

int get_filters(const SocketOptions& options, void* value, socklen_t* length) {
  const auto size = static_cast<socklen_t>(options.filter_count * sizeof(can_filter));
  if (*length < size) {
    *length = size;
    return ERANGE;
  }
  std::memcpy(value, options.filters.data(), size);
  *length = size;
  return 0;
}

}  // namespace

int set_raw_option(SocketOptions& options, int name, const void* value, socklen_t length) {
  if (name == CAN_RAW_FILTER) {
    return set_filters(options, value, length);
  }
  std::uint32_t number = 0;
  if (length != sizeof(number)) {
    return EINVAL;
  }
  std::memcpy(&number, value, sizeof(number));
  const auto member = find_member(name);
  if (member == nullptr) {
    return ENOPROTOOPT;
  }
  options.*member = name == CAN_RAW_ERR_FILTER ? number & CAN_ERR_MASK : number != 0U ? 1U : 0U;
  return 0;
}

int get_raw_option(const SocketOptions& options, int name, void* value, socklen_t* length) {
  if (name == CAN_RAW_FILTER) {
    return get_filters(options, value, length);
  }
  const auto member = find_member(name);
  if (member == nullptr) {
    return ENOPROTOOPT;
  }
  const std::uint32_t number = options.*member;
  *length = std::min<socklen_t>(*length, sizeof(number));
  std::memcpy(value, &number, *length);
  return 0;
}

}  // namespace kelvara::simulation
