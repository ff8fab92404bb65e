// kelvara-virtual-can: runs and controls virtual CAN interfaces.

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulation/virtual_can/control_channel.hpp"
#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/runtime_directory.hpp"
#include "simulation/virtual_can/virtual_can_hub.hpp"

namespace {

using kelvara::simulation::InterfaceName;
using kelvara::simulation::VirtualCanHub;
namespace simulation = kelvara::simulation;

constexpr const char* kUsage =
    "usage: kelvara-virtual-can run NAME [--mtu 16|72 | --until-eof] | up NAME | down NAME | "
    "enobufs NAME COUNT | list";

/// Invalid arguments.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

unsigned parse_number(const std::string& text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw UsageError("'" + text + "' is not a number");
  }
  return value;
}

InterfaceName require_interface(const std::string& name) {
  const auto interface = simulation::find_interface(name);
  if (!interface) {
    throw std::runtime_error("there is no interface " + name);
  }
  return *interface;
}

/// Waits for one of the signals or, when `until_eof`, for the end of standard input.
void wait_for_end(const sigset_t& signals, bool until_eof) {
  const int signal_fd = signalfd(-1, &signals, SFD_CLOEXEC);
  std::array<pollfd, 2> events{{{signal_fd, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  std::array<char, 256> ignored{};
  for (;;) {
    if (poll(events.data(), until_eof ? 2 : 1, -1) < 0 || events[0].revents != 0) {
      return;
    }
    if (events[1].revents != 0 && read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0) {
      return;
    }
  }
}

void run(const std::string& name, int mtu, bool until_eof) {
  // Blocked before the hub's thread starts, so that only the wait below receives them. With
  // --until-eof the bus must outlast its users, which the same SIGINT ends.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  if (until_eof) {
    sigdelset(&signals, SIGINT);
  }
  const VirtualCanHub hub(name, {mtu});
  std::printf("ready: %s in %s\n", name.c_str(), simulation::runtime_directory().c_str());
  std::fflush(stdout);
  wait_for_end(signals, until_eof);
}

void list() {
  simulation::prepare_runtime_directory();  // reports a directory that is not private
  for (const InterfaceName& interface : simulation::list_interfaces()) {
    const auto state = simulation::map_state(interface);
    if (state) {
      std::printf("%d: %s %s mtu %u frames %llu dropped %llu\n", interface.index,
                  interface.name.c_str(), state->up != 0U ? "up" : "down", state->mtu.load(),
                  static_cast<unsigned long long>(state->frames.load()),
                  static_cast<unsigned long long>(state->dropped.load()));
    }
  }
}

void execute(const std::vector<std::string>& words) {
  const auto is = [&](const char* command, std::size_t count) {
    return words.size() == count && words[0] == command;
  };
  if (is("list", 1)) {
    list();
  } else if (is("run", 2)) {
    run(words[1], 72, false);
  } else if (is("run", 3) && words[2] == "--until-eof") {
    run(words[1], 72, true);
  } else if (is("run", 4) && words[2] == "--mtu") {
    run(words[1], static_cast<int>(parse_number(words[3])), false);
  } else if (is("up", 2) || is("down", 2)) {
    const auto request =
        words[0] == "up" ? simulation::Request::kBringUp : simulation::Request::kBringDown;
    if (!simulation::request_of_hub(require_interface(words[1]), request)) {
      throw std::runtime_error("the hub of " + words[1] + " does not answer");
    }
  } else if (is("enobufs", 3)) {
    const auto state = simulation::map_state(require_interface(words[1]));
    if (!state) {
      throw std::runtime_error("cannot reach interface " + words[1]);
    }
    state->failing_writes = parse_number(words[2]);
  } else {
    throw UsageError(kUsage);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    execute({argv + 1, argv + argc});
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "kelvara-virtual-can: %s\n", error.what());
    return 2;
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "kelvara-virtual-can: %s\n", error.what());
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kelvara-virtual-can: %s\n", error.what());
    return 1;
  }
}
