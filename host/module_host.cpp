#include "module_host.h"

#include <cctype>

#include "lmx/platform/text.h"

namespace lmxhost {

using Norvik::Lumetra::Service::SessionService;

namespace {

DLLExportTable* AsValidTable(void* symbol) {
  auto* table = static_cast<DLLExportTable*>(symbol);
  return table && table->desc.signature == SessionService::kSignature ? table : nullptr;
}

}  // namespace

bool Module::Load(const std::filesystem::path& path) {
  handle_ = lmx::platform::LoadModule(path);
  if (!handle_) return false;
  if ((table_ = AsValidTable(lmx::platform::FindExport(handle_, kLMXExportTableName)))) {
    lookup_ = TableLookup::kByName;
  } else if ((table_ = AsValidTable(lmx::platform::FindExportByOrdinal(handle_, 1)))) {
    lookup_ = TableLookup::kByOrdinal;
  }
  return table_ != nullptr;
}

std::vector<DLLExportTable*> Module::Entries() const {
  std::vector<DLLExportTable*> entries;
  for (DLLExportTable* entry = table_; entry; entry = entry->next) {
    if (entry->desc.signature == SessionService::kSignature) entries.push_back(entry);
  }
  return entries;
}

std::filesystem::path DefaultCoreLibraryPath() {
  return lmx::platform::ExecutablePath().parent_path() / lmx::platform::SharedLibraryFileName("liblmxcore");
}

std::string FriendlyName(const DLLExportTable& entry) {
  std::wstring wide;
  for (char16_t c : entry.desc.friendlyName) {
    if (!c) break;
    wide.push_back(static_cast<wchar_t>(c));
  }
  return lmx::platform::WideToUtf8(wide);
}

std::string FourCCText(uint32_t value) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    const char c = static_cast<char>((value >> (8 * i)) & 0xFF);
    if (!std::isprint(static_cast<unsigned char>(c))) return "";
    text.push_back(c);
  }
  return text;
}

}  // namespace lmxhost
