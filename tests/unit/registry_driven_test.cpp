// Registry values on either back end (a .reg file or the real registry): keys as
// RegistryKey reads them (both views) and the worker pool chosen by "NumberThreads".
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "scheduler/corescheduler_pool.h"
#include "lmx/platform/registry.h"
#include "support/test_registry.h"

using namespace lmxtest;

const std::wstring kSdkKey = L"Software\\Norvik\\LMSDK";

TEST(RegistryDriven, KeysReadTypedValuesByCaseInsensitiveNameAndListDirectSubkeys) {
  using lmx::platform::RegistryKey;
  ScopedTestRegistry registry;
  const std::wstring root = L"Software\\Norvik\\LMSDKTest";
  registry.SetString(root, L"DebugView", L"say \"hi\" C:\\dir");
  registry.SetString(root, L"Empty", L"");
  registry.SetDword(root, L"NumberThreads", 0xFFFFFFFFu);
  registry.SetDword(L"Software\\Wow6432Node\\Norvik\\LMSDKTest", L"NumberThreads", 32);
  registry.SetDword(root + L"\\Beta", L"v", 1);
  registry.SetDword(root + L"\\Alpha\\Nested", L"v", 2);  // Alpha exists through its descendant
  const RegistryKey key = RegistryKey::OpenLocalMachine(L"SOFTWARE\\norvik\\LMSDKTest");
  ASSERT_TRUE(key.IsOpen());
  EXPECT_EQ(key.ReadString(L"debugview"), L"say \"hi\" C:\\dir");
  EXPECT_EQ(key.ReadString(L"Empty"), L"");
  EXPECT_EQ(key.ReadDword(L"NUMBERTHREADS"), 0xFFFFFFFFu);
  EXPECT_EQ(RegistryKey::OpenLocalMachine(root, lmx::platform::RegistryView::k32Bit).ReadDword(L"NumberThreads"), 32u)
      << "the 32-bit view reads the Wow6432Node twin";
  // A value of the other type, or none at all, answers nothing.
  EXPECT_FALSE(key.ReadDword(L"DebugView") || key.ReadString(L"NumberThreads") || key.ReadString(L"Missing"));
  auto subkeys = key.EnumerateSubkeys();
  std::sort(subkeys.begin(), subkeys.end());
  EXPECT_EQ(subkeys, (std::vector<std::wstring>{L"Alpha", L"Beta"}));
  const RegistryKey missing = RegistryKey::OpenLocalMachine(root + L"\\Nowhere");
  EXPECT_FALSE(missing.IsOpen() || missing.ReadString(L"DebugView") || !missing.EnumerateSubkeys().empty());
}

TEST(RegistryDriven, NumberThreadsOneSelectsTheSingleWorker) {
  ScopedTestRegistry registry;
  std::unique_ptr<lmx::TaskScheduler> absent(lmx::CreateTaskScheduler(nullptr));
  EXPECT_NE(dynamic_cast<lmx::STDThreadPool*>(absent.get()), nullptr) << "no value: the pool";
  registry.SetDword(kSdkKey, L"NumberThreads", 1);
  std::unique_ptr<lmx::TaskScheduler> single(lmx::CreateTaskScheduler(nullptr));
  EXPECT_NE(dynamic_cast<lmx::PThreadScheduler*>(single.get()), nullptr);

  for (uint32_t value : {0u, 2u, 8u}) {
    registry.SetDword(kSdkKey, L"NumberThreads", value);
    std::unique_ptr<lmx::TaskScheduler> pool(lmx::CreateTaskScheduler(nullptr));
    auto* threads = dynamic_cast<lmx::STDThreadPool*>(pool.get());
    ASSERT_NE(threads, nullptr) << value;
    EXPECT_EQ(threads->ThreadCount(), lmx::HardwareThreadCount()) << "the value is not a thread count";
  }
}
