#include "description/file_search.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/outcomes.hpp"
#include "support/temporary_directory.hpp"

namespace kelvara {
namespace {

using ::testing::HasSubstr;

TEST(FileSearch, PrefersConfigFoldersThenTheCurrentDirectoryAndNeverCaches) {
  const TemporaryWorkingDirectory directory;
  const auto found = [] { return algorithms::find_config_file("kelvara-test.yaml").string(); };
  EXPECT_THAT(error_of(found), HasSubstr("Failed to locate config file 'kelvara-test.yaml'. "
                                         "Checked relative to library path \"/"));
  EXPECT_THAT(error_of(found),
              HasSubstr("\" and current path \"" + directory.path().string() + "\"."));
  // From the last place that is looked at to the first.
  for (const char* place : {"../kelvara-test.yaml", "kelvara-test.yaml",
                            "../config/kelvara-test.yaml", "config/kelvara-test.yaml"}) {
    directory.write(place, "");
    EXPECT_EQ(found(), std::filesystem::canonical(directory.path() / place).string());
  }
}

}  // namespace
}  // namespace kelvara
