// The POSIX registry: a ".reg" file named by $LMSDK_REGISTRY.
#include <gtest/gtest.h>

#include <string>

#include "lmx/platform/registry.h"
#include "log_bootstrap_support.h"

using lmx::platform::RegistryKey;

namespace {

// Each test reads a registry file of its own, in a temporary folder.
class RegistryFile : public ::testing::Test {
 protected:
  void Write(const std::string& bytes) { folder_.Write("lmsdk.reg", bytes); }

  lmxtest::TempFolder folder_;
  lmxtest::ScopedEnvironment registry_{L"LMSDK_REGISTRY", lmxtest::ToWide(folder_.path() / "lmsdk.reg")};
};

const char kSample[] =
    "Windows Registry Editor Version 5.00\r\n"
    "\r\n"
    "; a comment\r\n"
    "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK]\r\n"
    "\"NumberThreads\"=dword:00000001\r\n"
    "\r\n"
    "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
    "\"DebugView\"=\"VERBOSE\"\r\n"
    "\"Expanded\"=hex(2):25,00,54,00,4d,00,50,00,25,00,00,00\r\n"
    "\"Big\"=hex(4):78,56,34,\\\r\n"
    "  12\r\n"
    "\r\n"
    "[HKEY_CURRENT_USER\\Software\\Norvik\\LMSDK]\r\n"
    "\"NumberThreads\"=dword:00000009\r\n";

}  // namespace

TEST_F(RegistryFile, ReadsOnlyTheLocalMachineHiveWithExpandedAndContinuedHex) {
  Write(kSample);
  auto key = RegistryKey::OpenLocalMachine(L"software\\NORVIK\\lmsdk");
  ASSERT_TRUE(key.IsOpen());
  EXPECT_EQ(key.ReadDword(L"numberthreads"), 1u) << "other hives are ignored";

  auto logging = RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK\\Logging");
  EXPECT_EQ(logging.ReadString(L"DebugView"), L"VERBOSE");
  EXPECT_EQ(logging.ReadString(L"Expanded"), L"%TMP%");
  EXPECT_EQ(logging.ReadDword(L"Big"), 0x12345678u) << "hex data continued on the next line";
}

TEST_F(RegistryFile, Utf16FileWithBomAndDeletions) {
  const std::string text =
      "Windows Registry Editor Version 5.00\r\n"
      "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\r\n"
      "\"DebugView\"=\"caf\xE9\"\r\n"
      "\"Gone\"=\"x\"\r\n"
      "\"Gone\"=-\r\n"
      "[HKEY_LOCAL_MACHINE\\Software\\Norvik\\Old]\r\n"
      "\"v\"=dword:1\r\n"
      "[-HKEY_LOCAL_MACHINE\\Software\\Norvik\\Old]\r\n";
  std::string utf16 = "\xFF\xFE";  // Latin-1 text widened to UTF-16LE
  for (char c : text) utf16 += {c, '\0'};
  Write(utf16);
  auto logging = RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK\\Logging");
  EXPECT_EQ(logging.ReadString(L"DebugView"), L"caf\u00e9");
  EXPECT_FALSE(logging.ReadString(L"Gone"));
  EXPECT_FALSE(RegistryKey::OpenLocalMachine(L"Software\\Norvik\\Old").IsOpen());
}

TEST_F(RegistryFile, MissingOrMalformedFileIsAnEmptyRegistry) {
  EXPECT_FALSE(RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK").IsOpen());
  Write("\x01\x02garbage [ \"x\"=dword:zz\n[HKEY_LOCAL_MACHINE\\A]\n\"n\"=dword:1FFFFFFFF\n\"s\"=\"unterminated\n");
  auto key = RegistryKey::OpenLocalMachine(L"A");
  EXPECT_TRUE(key.IsOpen());
  EXPECT_FALSE(key.ReadDword(L"n")) << "out of range";
  EXPECT_FALSE(key.ReadString(L"s"));
  RegistryKey closed;
  EXPECT_FALSE(closed.ReadString(L"x"));
  EXPECT_TRUE(closed.EnumerateSubkeys().empty());
}
