// RegistryKey's 32-bit view against the real registry (the view the test registry
// cannot write): a value under the Wow6432Node twin of a scratch key.
#include <gtest/gtest.h>
#include <windows.h>

#include "lmx/platform/registry.h"

using lmx::platform::RegistryKey;
using lmx::platform::RegistryView;

namespace {

const wchar_t kScratch[] = L"Software\\Norvik\\LMSDKTest";

void WriteDword(const wchar_t* path, DWORD value, REGSAM view) {
  HKEY key = nullptr;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(::RegSetValueExW(key, L"NumberThreads", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value),
            ERROR_SUCCESS);
  ::RegCloseKey(key);
}

}  // namespace

TEST(Registry, ThirtyTwoBitViewReadsTheWow6432NodeKeys) {
  WriteDword(kScratch, 64, KEY_WOW64_64KEY);
  WriteDword(L"Software\\Wow6432Node\\Norvik\\LMSDKTest", 32, KEY_WOW64_64KEY);
  EXPECT_EQ(RegistryKey::OpenLocalMachine(kScratch).ReadDword(L"NumberThreads"), 64u);
  EXPECT_EQ(RegistryKey::OpenLocalMachine(kScratch, RegistryView::k32Bit).ReadDword(L"NumberThreads"), 32u);
  for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kScratch, view, 0);
}
