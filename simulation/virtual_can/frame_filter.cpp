#include "simulation/virtual_can/frame_filter.hpp"

#include <algorithm>

namespace kelvara::simulation {
namespace {

bool matches(const can_filter& filter, canid_t id) {
  const bool inverted = (filter.can_id & CAN_INV_FILTER) != 0U;
  canid_t mask = filter.can_mask & ~CAN_ERR_FLAG;
  const canid_t wanted = filter.can_id & ~CAN_INV_FILTER;
  // A filter for standard identifiers ignores the bits of extended ones.
  if ((mask & CAN_EFF_FLAG) != 0U && (wanted & CAN_EFF_FLAG) == 0U) {
    mask &= CAN_SFF_MASK | CAN_EFF_FLAG | CAN_RTR_FLAG;
  }
  return ((id & mask) == (wanted & mask)) != inverted;
}

}  // namespace

bool passes_filters(const SocketOptions& options, canid_t id) {
  if ((id & CAN_ERR_FLAG) != 0U) {
    return (id & options.error_mask) != 0U;
  }
  const auto* begin = options.filters.data();
  const auto* end = begin + std::min<std::size_t>(options.filter_count, kMaxFilters);
  const auto match = [id](const can_filter& filter) { return matches(filter, id); };
  if (begin == end) {
    return false;
  }
  return options.join_filters != 0U ? std::all_of(begin, end, match)
                                    : std::any_of(begin, end, match);
}

}  // namespace kelvara::simulation
