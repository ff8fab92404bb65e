#include "simulation/virtual_can/runtime_directory.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "simulation/virtual_can/interface_directory.hpp"
#include "simulation/virtual_can/virtual_can_hub.hpp"
#include "support/test_bus.hpp"

namespace kelvara::simulation {
namespace {

namespace fs = std::filesystem;

void choose_directory(const std::string& path) {
  setenv("KELVARA_VIRTUAL_CAN_DIR", path.c_str(), 1);
}

TEST(RuntimeDirectory, IsUsedOnlyWhileNobodyElseCanPrepareIt) {
  const TestBus bus;
  const fs::path directory = runtime_directory();
  const auto expect_refused = [] {
    EXPECT_THROW(VirtualCanHub("can1"), std::runtime_error);
    EXPECT_FALSE(find_interface("can0"));
  };
  for (const fs::perms perms : {fs::perms::group_write, fs::perms::others_write}) {
    fs::permissions(directory, perms, fs::perm_options::add);
    expect_refused();
    fs::permissions(directory, perms, fs::perm_options::remove);
  }
  if (geteuid() == 0) {  // others cannot give a directory away
    ASSERT_EQ(chown(directory.c_str(), 1, 1), 0);
    expect_refused();
    ASSERT_EQ(chown(directory.c_str(), 0, 0), 0);
  }
  EXPECT_TRUE(find_interface("can0"));
  const std::string link = directory.string() + "-link";
  fs::create_directory_symlink(directory, link);
  choose_directory(link);
  expect_refused();
  choose_directory(directory);
  fs::remove(link);
}

TEST(RuntimeDirectory, IsInTheSessionsDirectoryOnlyIfThatIsPrivate) {
  const TestBus bus;
  const std::string session = runtime_directory();
  const std::string name = "/kelvara-virtual-can-" + std::to_string(geteuid());
  unsetenv("KELVARA_VIRTUAL_CAN_DIR");
  setenv("XDG_RUNTIME_DIR", session.c_str(), 1);
  EXPECT_EQ(runtime_directory(), session + name);
  fs::permissions(session, fs::perms::all);
  EXPECT_EQ(runtime_directory(), "/tmp" + name);
  unsetenv("XDG_RUNTIME_DIR");
  choose_directory(session);
}

}  // namespace
}  // namespace kelvara::simulation
