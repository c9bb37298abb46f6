// test_registry.h: registry values set for the scope of a test, on either back end.
//
// POSIX: a private ".reg" file named by $LMSDK_REGISTRY (restored afterwards).
// Windows: the real local-machine registry (wine's, in CI); the values written are
// deleted again on destruction.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace lmxtest {

class ScopedTestRegistry {
 public:
  ScopedTestRegistry();
  ~ScopedTestRegistry();
  ScopedTestRegistry(const ScopedTestRegistry&) = delete;
  ScopedTestRegistry& operator=(const ScopedTestRegistry&) = delete;

  // key is below HKEY_LOCAL_MACHINE, e.g. L"Software\\Norvik\\LMSDK".
  void SetString(const std::wstring& key, const std::wstring& name, const std::wstring& value);
  void SetDword(const std::wstring& key, const std::wstring& name, uint32_t value);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace lmxtest
