// The platform's module services on the built library: paths, loading, and the
// export looked up by name and, where the platform has ordinals, by ordinal 1.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "lmx/platform/module.h"
#include "host_ref.h"
#include "lmxallocator.h"
#include "module_host.h"

namespace platform = lmx::platform;
using namespace Norvik::Lumetra;

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
}

// A large conversion starts the band threads; unloading the library stops them
// (on Windows they end once the unload releases the loader lock, hence the
// short wait), and a second load starts them again.
TEST(ModuleServices, UnloadingLeavesNoBandThreadBehind) {
  const std::filesystem::path tasks = "/proc/self/task";
  if (!std::filesystem::exists(tasks)) GTEST_SKIP() << "no list of the process's threads here";
  auto threads = [&] { return std::distance(std::filesystem::directory_iterator(tasks), {}); };
  auto settled = [&](std::ptrdiff_t expected) {
    for (int i = 0; i < 100 && threads() != expected; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return threads();
  };
  const auto before = threads();
  for (int cycle = 0; cycle < 2; ++cycle) {
    {
      lmxhost::Module module;
      lmxhost::Ref<LMXAllocator> allocator;  // released before the module unloads
      ASSERT_TRUE(module.Load(lmxhost::DefaultCoreLibraryPath()));
      ASSERT_EQ(module.Create(LMXAllocator::kIid, nullptr, allocator.Out()), LMX_STATUS_NO_ERROR);
      Image::ImageInfo info{3840, 2160, Image::PIXEL_FORMAT_YUY2, 0};
      Image* image = nullptr;
      ASSERT_EQ(allocator->CreateImage(&info, 0, nullptr, &image), LMX_STATUS_NO_ERROR);
      Image::ImageData data{};
      for (auto [access, format] :
           {std::pair{Image::ACCESS_WRITE, Image::PIXEL_FORMAT_YUY2}, {Image::ACCESS_READ, Image::PIXEL_FORMAT_BGRA}}) {
        ASSERT_EQ(image->AcquireAccess(access, format, 0, &data), LMX_STATUS_NO_ERROR);
        image->ReleaseAccess(&data);
      }
      image->Release();
      allocator.Reset();
      // One processor, LMX_THREADS=1, or a thread list that shows none (wine).
      if (threads() == before) GTEST_SKIP() << "no band thread to be seen here";
    }
    EXPECT_EQ(settled(before), before) << "cycle " << cycle;
  }
}
