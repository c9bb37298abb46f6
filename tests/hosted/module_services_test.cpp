// The platform's module services on the built library: paths, loading, and the
// export looked up by name and, where the platform has ordinals, by ordinal 1.
#include <gtest/gtest.h>

#include <filesystem>

#include "lmx/platform/module.h"
#include "module_host.h"

namespace platform = lmx::platform;

TEST(ModuleServices, TableFoundByNameAndByOrdinalOneWhereOrdinalsExist) {
  platform::ModuleHandle module = platform::LoadModule(lmxhost::DefaultCoreLibraryPath());
  ASSERT_NE(module, nullptr) << lmxhost::DefaultCoreLibraryPath();
  void* byName = platform::FindExport(module, kLMXExportTableName);
  ASSERT_NE(byName, nullptr);
  if (platform::ExportsHaveOrdinals()) {
    EXPECT_EQ(platform::FindExportByOrdinal(module, 1), byName) << "the table is the export at ordinal 1";
    EXPECT_EQ(platform::FindExportByOrdinal(module, 2), nullptr) << "and the only one";
  } else {
    EXPECT_EQ(platform::FindExportByOrdinal(module, 1), nullptr);
  }
  for (int ordinal : {0, -1, 0x10000}) EXPECT_EQ(platform::FindExportByOrdinal(module, ordinal), nullptr);
  EXPECT_EQ(platform::FindExport(module, "CreateScheduler"), nullptr) << "factories are reached through the table only";
  EXPECT_EQ(platform::FindExport(module, nullptr), nullptr);
  platform::UnloadModule(module);
}

TEST(ModuleServices, PathsOfTheProgramAndOfLoadedModules) {
  const std::filesystem::path executable = platform::ExecutablePath();
  EXPECT_TRUE(executable.is_absolute()) << executable;
  EXPECT_EQ(executable.stem(), "host_tests");

  lmxhost::Module module;
  ASSERT_TRUE(module.Load(lmxhost::DefaultCoreLibraryPath()));
  const std::filesystem::path library = platform::ModulePathOf(module.Table());
  std::error_code error;
  EXPECT_TRUE(std::filesystem::equivalent(library, lmxhost::DefaultCoreLibraryPath(), error)) << library;
  EXPECT_TRUE(platform::ModulePathOf(nullptr).empty());

  EXPECT_EQ(platform::LoadModule(executable.parent_path() / "no-such-module"), nullptr);
  platform::UnloadModule(nullptr);
  EXPECT_EQ(platform::FindExport(nullptr, kLMXExportTableName), nullptr);
  EXPECT_EQ(platform::FindExportByOrdinal(nullptr, 1), nullptr);
}

TEST(ModuleServices, SharedLibraryNamesKeepOneLibPrefix) {
  const std::filesystem::path core = platform::SharedLibraryFileName("liblmxcore");
  EXPECT_EQ(core.stem(), "liblmxcore");
  EXPECT_EQ(platform::SharedLibraryFileName("lmxcore"), core);
  EXPECT_EQ(platform::SharedLibraryFileName("liblmxlog").stem(), "liblmxlog");
}
