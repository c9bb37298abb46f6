// RegistryKey against the real registry: values written with the Win32 API under
// a scratch key are read back, in both views.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>

#include "lmx/platform/registry.h"

using lmx::platform::RegistryKey;
using lmx::platform::RegistryView;

namespace {

const wchar_t kScratch[] = L"Software\\Norvik\\LMSDKTest";

class Registry : public ::testing::Test {
 protected:
  void SetUp() override { DeleteScratch(); }
  void TearDown() override { DeleteScratch(); }

  static void DeleteScratch() {
    for (REGSAM view : {KEY_WOW64_64KEY, KEY_WOW64_32KEY}) {
      HKEY parent = nullptr;
      if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Norvik", 0, KEY_ALL_ACCESS | view, &parent) == ERROR_SUCCESS) {
        ::RegDeleteTreeW(parent, L"LMSDKTest");
        ::RegCloseKey(parent);
      }
    }
  }

  // Creates HKLM\<path> in the given view and sets a value on it (no value if name is null).
  static void Write(const std::wstring& path, const wchar_t* name, DWORD type, const void* data, DWORD bytes,
                    REGSAM view = KEY_WOW64_64KEY) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, &key,
                                nullptr),
              ERROR_SUCCESS);
    if (name) {
      EXPECT_EQ(::RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), bytes), ERROR_SUCCESS);
    }
    ::RegCloseKey(key);
  }
  static void WriteString(const std::wstring& path, const wchar_t* name, const std::wstring& value,
                          REGSAM view = KEY_WOW64_64KEY) {
    Write(path, name, REG_SZ, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)), view);
  }
  static void WriteDword(const std::wstring& path, const wchar_t* name, DWORD value, REGSAM view = KEY_WOW64_64KEY) {
    Write(path, name, REG_DWORD, &value, sizeof value, view);
  }
};

}  // namespace

TEST_F(Registry, ReadsStringsAndDwordsByCaseInsensitiveName) {
  const std::wstring longText(3000, L'x');
  WriteString(kScratch, L"DebugView", L"VERBOSE");
  WriteString(kScratch, L"Empty", L"");
  WriteString(kScratch, L"Long", longText);
  WriteDword(kScratch, L"NumberThreads", 0xFFFFFFFFu);

  const RegistryKey key = RegistryKey::OpenLocalMachine(kScratch);
  ASSERT_TRUE(key.IsOpen());
  EXPECT_EQ(key.ReadString(L"debugview"), L"VERBOSE");
  EXPECT_EQ(key.ReadString(L"Empty"), L"");
  EXPECT_EQ(key.ReadString(L"Long"), longText);
  EXPECT_EQ(key.ReadDword(L"NUMBERTHREADS"), 0xFFFFFFFFu);

  // A value of the other type, or no value at all, answers nothing.
  EXPECT_FALSE(key.ReadDword(L"DebugView"));
  EXPECT_FALSE(key.ReadString(L"NumberThreads"));
  EXPECT_FALSE(key.ReadString(L"Missing"));
  EXPECT_FALSE(key.ReadDword(L"Missing"));
}

TEST_F(Registry, MissingKeysAreClosedAndMovesHandOverTheKey) {
  RegistryKey missing = RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDKTest\\Nowhere");
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_FALSE(missing.ReadString(L"DebugView"));
  EXPECT_FALSE(missing.ReadDword(L"NumberThreads"));
  EXPECT_TRUE(missing.EnumerateSubkeys().empty());

  WriteDword(kScratch, L"NumberThreads", 3);
  RegistryKey key = RegistryKey::OpenLocalMachine(kScratch);
  RegistryKey moved(std::move(key));
  EXPECT_FALSE(key.IsOpen());
  EXPECT_EQ(moved.ReadDword(L"NumberThreads"), 3u);
  missing = std::move(moved);
  EXPECT_EQ(missing.ReadDword(L"NumberThreads"), 3u);
}

TEST_F(Registry, EnumeratesDirectSubkeysOnly) {
  const std::wstring root = kScratch;
  for (const wchar_t* name : {L"Beta", L"Alpha", L"Gamma"}) Write(root + L"\\Logging\\" + name, nullptr, 0, nullptr, 0);
  Write(root + L"\\Logging\\Alpha\\Nested", nullptr, 0, nullptr, 0);

  auto names = RegistryKey::OpenLocalMachine(root + L"\\Logging").EnumerateSubkeys();
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::wstring>{L"Alpha", L"Beta", L"Gamma"}));
}

TEST_F(Registry, ThirtyTwoBitViewReadsTheWow6432NodeKeys) {
  WriteDword(kScratch, L"NumberThreads", 64);
  WriteDword(L"Software\\Wow6432Node\\Norvik\\LMSDKTest", L"NumberThreads", 32);

  EXPECT_EQ(RegistryKey::OpenLocalMachine(kScratch).ReadDword(L"NumberThreads"), 64u);
  EXPECT_EQ(RegistryKey::OpenLocalMachine(kScratch, RegistryView::k32Bit).ReadDword(L"NumberThreads"), 32u);
}
