#include "module_host.h"

#include <cctype>

#include "lmx/platform/module.h"
#include "lmx/platform/text.h"

namespace lmxhost {

using namespace Norvik::Lumetra;
using Service::SessionService;

namespace {

DLLExportTable* AsValidTable(void* symbol) {
  auto* table = static_cast<DLLExportTable*>(symbol);
  return table && table->desc.signature == SessionService::kSignature ? table : nullptr;
}

}  // namespace

Module::~Module() { lmx::platform::UnloadModule(handle_); }

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

std::vector<DLLExportTable*> ValidEntries(DLLExportTable* table) {
  std::vector<DLLExportTable*> entries;
  for (DLLExportTable* entry = table; entry; entry = entry->next) {
    if (entry->desc.signature == SessionService::kSignature) entries.push_back(entry);
  }
  return entries;
}

DLLExportTable* FindEntry(DLLExportTable* table, InterfaceId iid) {
  DLLExportTable* best = nullptr;
  for (DLLExportTable* entry : ValidEntries(table)) {
    bool listed = false;
    for (InterfaceId offered : entry->desc.iids) listed = listed || offered == iid;
    if (listed && entry->factory && (!best || entry->desc.merit > best->desc.merit)) best = entry;
  }
  return best;
}

Status Create(DLLExportTable* table, InterfaceId iid, Session* session, void** face) {
  *face = nullptr;
  DLLExportTable* entry = FindEntry(table, iid);
  if (!entry) return LMX_STATUS_ITEM_UNAVAILABLE;
  Base* object = nullptr;
  const Status sts = entry->factory(session, nullptr, nullptr, entry, iid, &object);
  if (sts >= 0 && object) *face = object->QueryInstance(iid);
  if (*face) return sts;
  if (object) object->Release();  // a factory may hand out an object whose set-up failed
  return sts < 0 ? sts : LMX_STATUS_ITEM_UNAVAILABLE;
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
