// registry.h: read-only access to the local-machine registry hive.
//
// Windows reads the real registry. POSIX reads a file in the Windows ".reg" export
// format: $LMSDK_REGISTRY if set (a missing file is an empty registry), else
// /etc/lmsdk/lmsdk.reg if it exists, else the installation's own
// <libdir>/../etc/lmsdk/lmsdk.reg beside the loaded library. Key and value names compare case-insensitively. The 32-bit
// view reads the Wow6432Node keys (on POSIX literally, as written in the file).
//
// Example:
//   auto key = RegistryKey::OpenLocalMachine(L"Software\\Norvik\\LMSDK");
//   if (auto threads = key.ReadDword(L"NumberThreads")) ...
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lmx::platform {

enum class RegistryView { kDefault, k32Bit };

class RegistryKey {
 public:
  RegistryKey() = default;
  ~RegistryKey();
  RegistryKey(RegistryKey&& other) noexcept;
  RegistryKey& operator=(RegistryKey&& other) noexcept;
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  // Opens HKEY_LOCAL_MACHINE\<subkey> for reading; a key that does not exist
  // gives a closed key, whose reads all answer nothing.
  static RegistryKey OpenLocalMachine(const std::wstring& subkey, RegistryView view = RegistryView::kDefault);

  bool IsOpen() const { return handle_ != nullptr; }
  std::optional<std::wstring> ReadString(const std::wstring& name) const;
  std::optional<uint32_t> ReadDword(const std::wstring& name) const;
  // Names of the direct subkeys, in the order the registry gives them.
  std::vector<std::wstring> EnumerateSubkeys() const;

 private:
  explicit RegistryKey(void* handle) : handle_(handle) {}
  void* handle_ = nullptr;  // back-end specific
};

}  // namespace lmx::platform
