// kelvara-virtual-can: runs and controls virtual CAN interfaces.

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulation/virtual_can/control_channel.hpp"
#include "simulation/virtual_can/descriptor.hpp"
#include "simulation/virtual_can/interface_claim.hpp"
#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/runtime_directory.hpp"
#include "simulation/virtual_can/virtual_can_hub.hpp"

namespace {

using kelvara::simulation::Descriptor;
using kelvara::simulation::InterfaceName;
using kelvara::simulation::VirtualCanHub;
namespace simulation = kelvara::simulation;

constexpr const char* kUsage =
    "usage: kelvara-virtual-can run NAME [--mtu 16|72 | --until-unused] | up NAME | down NAME | "
    "enobufs NAME COUNT | list | users-file NAME | preload LIBRARY";
constexpr int kUsersCheckMs = 10;

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

/// The file that the users of an interface hold locked (shared).
std::string users_path(const std::string& name) {
  simulation::check_interface_name(name);
  return simulation::prepare_runtime_directory() + "/" + name + ".users";
}

Descriptor open_users_file(const std::string& name) {
  const std::string path = users_path(name);
  return simulation::checked(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600), path);
}

/// Waits for one of the signals or, given a file of users, until nobody holds it locked. The lock
/// is then this process's own, so that no new user counts on an interface that is about to end.
void wait_for_end(const sigset_t& signals, const Descriptor& users) {
  const Descriptor signal_fd = simulation::checked(signalfd(-1, &signals, SFD_CLOEXEC), "signalfd");
  pollfd event{signal_fd.get(), POLLIN, 0};
  const bool has_users = users.get() >= 0;
  while (poll(&event, 1, has_users ? kUsersCheckMs : -1) == 0) {
    if (flock(users.get(), LOCK_EX | LOCK_NB) == 0) {
      return;
    }
  }
}

void run(const std::string& name, int mtu, bool until_unused) {
  // Blocked before the hub's thread starts, so that only the wait below receives them. With
  // --until-unused the bus must outlast its users, which the same SIGINT ends.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  Descriptor users;  // released after the hub has ended
  if (until_unused) {
    sigdelset(&signals, SIGINT);
    users = open_users_file(name);
  }
  const VirtualCanHub hub(name, {mtu});
  std::printf("ready: %s in %s\n", name.c_str(), simulation::runtime_directory().c_str());
  std::fflush(stdout);
  wait_for_end(signals, users);
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
  } else if (is("run", 3) && words[2] == "--until-unused") {
    run(words[1], 72, true);
  } else if (is("run", 4) && words[2] == "--mtu") {
    run(words[1], static_cast<int>(parse_number(words[3])), false);
  } else if (is("up", 2) || is("down", 2)) {
    const auto request =
        words[0] == "up" ? simulation::Request::kBringUp : simulation::Request::kBringDown;
    if (!simulation::request_of_hub(require_interface(words[1]), request)) {
      throw std::runtime_error("the hub of " + words[1] + " does not answer");
    }
  } else if (is("users-file", 2)) {
    open_users_file(words[1]);
    std::puts(users_path(words[1]).c_str());
  } else if (is("preload", 2)) {
    std::puts(simulation::preload_path(words[1]).c_str());
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
