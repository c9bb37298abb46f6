// lmxtool: a command-line host of the library.
//
//   lmxtool info [module]   load a module as a session host does and list its
//                           export table entries (default: the built liblmxcore).
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "module_host.h"

namespace {

void PrintUsage(FILE* out) {
  std::fprintf(out,
               "Usage: lmxtool <command> [arguments]\n"
               "\n"
               "Commands:\n"
               "  info [module]   list the export table of a module (default: the built liblmxcore)\n");
}

int RunInfo(int argc, char** argv) {
  if (argc > 1 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
    std::printf("Usage: lmxtool info [module]\n\n"
                "Loads the module at run time, finds LMXDLLExportTable (by name, else by ordinal 1),\n"
                "checks each entry's signature and prints its descriptor.\n");
    return 0;
  }
  if (argc > 2) {
    std::fprintf(stderr, "lmxtool info: unexpected argument '%s'\n", argv[2]);
    return 2;
  }
  const std::filesystem::path path = argc > 1 ? std::filesystem::path(argv[1]) : lmxhost::DefaultCoreLibraryPath();
  lmxhost::Module module;
  if (!module.Load(path)) {
    std::fprintf(stderr, "lmxtool info: '%s' %s\n", path.string().c_str(),
                 module.Handle() ? "has no valid LMXDLLExportTable" : "cannot be loaded");
    return 1;
  }
  std::printf("Module %s (table found by %s)\n", path.string().c_str(),
              module.Lookup() == lmxhost::TableLookup::kByName ? "name" : "ordinal 1");
  int index = 0;
  for (const auto* entry : module.Entries()) {
    const auto& d = entry->desc;
    std::printf("\n[%d] %s  \"%s\"\n", ++index, lmxhost::FourCCText(d.code).c_str(),
                lmxhost::FriendlyName(*entry).c_str());
    std::printf("    version %u.%u  merit %d  group 0x%08X  subgroup 0x%08X  vendor 0x%04X\n", d.versionMajor,
                d.versionMinor, d.merit, d.group, d.subgroup, d.vendor);
    std::printf("    interfaces:");
    for (int32_t iid : d.iids) {
      if (!iid) continue;
      const std::string text = lmxhost::FourCCText(static_cast<uint32_t>(iid));
      std::printf(" 0x%08X%s%s%s", static_cast<uint32_t>(iid), text.empty() ? "" : " \"", text.c_str(),
                  text.empty() ? "" : "\"");
    }
    std::printf("\n");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
    PrintUsage(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  if (!std::strcmp(argv[1], "info")) return RunInfo(argc - 1, argv + 1);
  std::fprintf(stderr, "lmxtool: unknown command '%s'\n\n", argv[1]);
  PrintUsage(stderr);
  return 2;
}
