#include "diagnostics/nonblocking_write.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace kelvara::diagnostics {
namespace {

/// Blocks the signals of a write for the calling thread: SIGPIPE, which would end the process, and
/// SIGTTOU, which would stop a process in the background.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGPIPE);
    sigaddset(&blocked, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &blocked, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

  /// Removes the SIGPIPE that the write has left pending.
  void discard_sigpipe() const {
    if (!was_pending_) {
      sigset_t broken_pipe;
      sigemptyset(&broken_pipe);
      sigaddset(&broken_pipe, SIGPIPE);
      const timespec at_once{};
      sigtimedwait(&broken_pipe, nullptr, &at_once);
    }
  }

 private:
  sigset_t before_{};
  bool was_pending_;
};

std::size_t count_taken(ssize_t written) {
  return written > 0 ? static_cast<std::size_t>(written) : 0;
}

std::size_t write_unsignalled(int descriptor, std::string_view text) {
  const BlockedSignals signals;
  const ssize_t written = write(descriptor, text.data(), text.size());
  if (written < 0 && errno == EPIPE) {
    signals.discard_sigpipe();
  }
  return count_taken(written);
}

/// Opening the master side would create another terminal.
bool is_terminal_slave(int descriptor) {
  unsigned number = 0;
  return isatty(descriptor) == 1 && ioctl(descriptor, TIOCGPTN, &number) != 0;
}

/// Opens the same pipe or terminal with O_NONBLOCK, which on the descriptor itself would apply to
/// every process that shares it. Negative when that is not possible.
///
/// The caller closes it after the write: an end that stayed open would keep the reader from seeing
/// the end of the application's output.
int reopen_nonblocking(int descriptor, const struct stat& status) {
  if (!S_ISFIFO(status.st_mode) && !is_terminal_slave(descriptor)) {
    return -1;
  }
  char path[sizeof("/proc/self/fd/") + 3 * sizeof(int)];
  std::snprintf(path, sizeof(path), "/proc/self/fd/%d", descriptor);
  return open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

}  // namespace

std::size_t write_at_once(int descriptor, std::string_view text) noexcept {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return 0;
  }
  if (S_ISSOCK(status.st_mode)) {
    return count_taken(send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
  }
  if (S_ISREG(status.st_mode)) {
    return write_unsignalled(descriptor, text);
  }
  const int own = reopen_nonblocking(descriptor, status);
  if (own < 0) {
    return is_ready(descriptor) ? write_unsignalled(descriptor, text) : 0;
  }
  const std::size_t taken = write_unsignalled(own, text);
  close(own);
  return taken;
}

bool is_regular_file(int descriptor) noexcept {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

bool is_ready(int descriptor) noexcept {
  pollfd request{descriptor, POLLOUT, 0};
  return poll(&request, 1, 0) == 1 && request.revents == POLLOUT;
}

}  // namespace kelvara::diagnostics
