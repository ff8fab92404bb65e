#pragma once

#include <linux/can.h>
#include <linux/can/error.h>

#include <array>
#include <atomic>
#include <cstdint>

/// What a virtual interface's hub and its sockets say to each other, over Unix sockets that keep
/// packet boundaries, and the page of memory that they share.
///
/// A socket sends bare frames (16 or 72 bytes) and control messages, which are longer. The hub
/// sends each frame after a header of its own.
namespace kelvara::simulation {

inline constexpr std::size_t kMaxFilters = 512;

/// What a socket has asked for; the hub delivers accordingly, so that a descriptor is readable only
/// when it holds something for its reader.
struct SocketOptions {
  std::uint32_t fd_frames = 0;
  std::uint32_t loopback = 1;
  std::uint32_t receive_own = 0;
  std::uint32_t join_filters = 0;
  std::uint32_t error_mask = 0;
  std::uint32_t filter_count = 1;  // at first one filter that lets everything pass
  std::array<can_filter, kMaxFilters> filters{};
};

enum class Request : std::uint32_t { kConfigure = 1, kBringUp = 2, kBringDown = 3 };

/// Comes with the write end of a pipe, into which the hub writes one byte when it has acted.
struct ControlMessage {
  Request request = Request::kConfigure;
  SocketOptions options;
};

/// A mark holds no frame: it makes a descriptor readable when its interface goes down. Whether its
/// reader was told meanwhile, by a write perhaps, the socket finds out from the shared page.
enum class PacketKind : std::uint32_t { kFrame = 0, kOwnFrame = 1, kMark = 2 };

/// Goes before every packet from the hub.
struct PacketHeader {
  PacketKind kind = PacketKind::kFrame;
  std::uint32_t unused = 0;
  std::uint64_t time_ns = 0;  // when the frame passed, CLOCK_REALTIME
};

/// The page that an interface's hub shares with every process.
struct InterfaceState {
  std::atomic<std::uint32_t> up{1};
  std::atomic<std::uint32_t> downs{0};  // how often it went down
  std::atomic<std::uint32_t> gone{0};   // 1 when the interface is there no more
  std::atomic<std::uint32_t> mtu{CANFD_MTU};
  std::atomic<std::uint32_t> failing_writes{0};  // so many writes fail with ENOBUFS
  std::atomic<std::uint64_t> frames{0};
  std::atomic<std::uint64_t> dropped{0};  // deliveries that a slow reader missed
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

}  // namespace kelvara::simulation
