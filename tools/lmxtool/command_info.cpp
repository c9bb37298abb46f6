// lmxtool info [module]: load a module as a host does and list its export table.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

#include "commands.h"
#include "library.h"
#include "lmxlogging.h"
#include "module_host.h"

namespace lmxtool {

int Fail(const char* command, const std::string& message) {
  std::fflush(stdout);  // keeps the report before the error when both go to one place
  std::fprintf(stderr, "lmxtool %s: %s\n", command, message.c_str());
  return 1;
}

namespace {

// "LMXScheduler 0x44454853 \"SHED\"": the interface's name where it is one of the
// kit's, its value, and its four characters when they are letters and digits (an
// identifier that is a number, such as 0x492D6A23, also reads as characters).
std::string InterfaceText(int32_t iid) {
  static const std::map<int32_t, const char*> kNames = {
      {LMXScheduler::kIid, "LMXScheduler"},
      {LMXSchedulerService::kIid, "LMXSchedulerService"},
      {LMXAllocator::kIid, "LMXAllocator"},
      {LMXAudioConversion::kIid, "LMXAudioConversion"},
      {LMXSyncPoint::kIid, "LMXSyncPoint"},
      {LMXAudioService::kIid, "LMXAudioService"},
      {Norvik::Lumetra::LoggingService::kIid, "LoggingService"},
  };
  char value[16];
  std::snprintf(value, sizeof value, "0x%08X", static_cast<uint32_t>(iid));
  std::string text = value;
  if (auto known = kNames.find(iid); known != kNames.end()) text = known->second + (" " + text);
  const std::string chars = lmxhost::FourCCText(static_cast<uint32_t>(iid));
  if (!chars.empty() && std::all_of(chars.begin(), chars.end(), [](unsigned char c) { return std::isalnum(c); }))
    text += " \"" + chars + "\"";
  return text;
}

int RunInfo(const std::filesystem::path& path) {
  lmxhost::Module module;
  if (!module.Load(path))
    return Fail("info",
                "'" + path.string() + "' " + (module.Handle() ? "has no valid LMXDLLExportTable" : "cannot be loaded"));
  std::printf("Module %s (table found by %s)\n", path.string().c_str(),
              module.Lookup() == lmxhost::TableLookup::kByName ? "name" : "ordinal 1");
  int index = 0;
  for (const auto* entry : module.Entries()) {
    const auto& d = entry->desc;
    std::printf("\n[%d] %s  \"%s\"\n", ++index, lmxhost::FourCCText(d.code).c_str(),
                lmxhost::FriendlyName(*entry).c_str());
    std::printf("    version %u.%u  merit %d  group 0x%08X  subgroup 0x%08X  vendor 0x%04X\n", d.versionMajor,
                d.versionMinor, d.merit, d.group, d.subgroup, d.vendor);
    std::string list;
    for (int32_t iid : d.iids)
      if (iid) list += (list.empty() ? " " : ", ") + InterfaceText(iid);
    std::printf("    interfaces:%s\n", list.c_str());
  }
  return 0;
}

}  // namespace

void AddInfoCommand(CLI::App& app, const GlobalOptions& global, int* exitCode) {
  auto module = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "info",
      "List a module's export table: finds LMXDLLExportTable (by name, else by ordinal 1), checks each "
      "entry's signature and prints its descriptor");
  command->add_option("module", *module, "The module (default: the liblmxcore this lmxtool uses)");
  command->callback([module, &global, exitCode] {
    const std::string& chosen = !module->empty() ? *module : global.library;
    *exitCode = RunInfo(chosen.empty() ? DefaultModulePath() : std::filesystem::path(chosen));
  });
}

}  // namespace lmxtool
