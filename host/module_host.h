// module_host.h: loading a module and creating its objects the way a session host does.
//
// Example:
//   lmxhost::Module module;
//   lmxhost::HostSession session;                     // host_session.h
//   lmxhost::Ref<LMXAllocator> allocator;             // host_ref.h
//   if (module.Load(path) && module.Create(LMXAllocator::kIid, &session, allocator.Out()) >= 0) ...
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lmxsession.h"

namespace lmxhost {

using Norvik::Lumetra::Service::DLLExportTable;

// The entries of a table whose signature is right, in table order.
std::vector<DLLExportTable*> ValidEntries(DLLExportTable* table);

// How the table was found.
enum class TableLookup { kNone, kByName, kByOrdinal };

// The entry of the table (valid signatures only) that has a factory and lists
// iid, the highest merit winning (the first of equals); null if none.
DLLExportTable* FindEntry(DLLExportTable* table, Norvik::Lumetra::InterfaceId iid);

// Runs the factory of FindEntry(table, iid) with `session` (the factory's first
// argument) and stores the new object's iid face in *face, holding the one
// reference the factory gave. On failure *face is null and whatever the factory
// handed out is released: LMX_STATUS_ITEM_UNAVAILABLE when no entry lists iid or
// the object does not answer it, else the factory's status.
Norvik::Lumetra::Status Create(DLLExportTable* table, Norvik::Lumetra::InterfaceId iid,
                               Norvik::Lumetra::Session* session, void** face);

class Module {
 public:
  Module() = default;
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Loads the module and finds its table: the export named "LMXDLLExportTable",
  // else (missing, or wrong signature) the export at ordinal 1. Returns whether a
  // table with the right signature was found.
  bool Load(const std::filesystem::path& path);

  DLLExportTable* Table() const { return table_; }
  TableLookup Lookup() const { return lookup_; }
  void* Handle() const { return handle_; }

  // Entries from the exported one through the next pointers; entries whose
  // signature differs are left out, as a host ignores them.
  std::vector<DLLExportTable*> Entries() const { return ValidEntries(table_); }
  // Create (above) on this module's table, typed for the face asked for.
  Norvik::Lumetra::Status Create(Norvik::Lumetra::InterfaceId iid, Norvik::Lumetra::Session* session,
                                 void** face) const {
    return lmxhost::Create(table_, iid, session, face);
  }
  template <class T>
  Norvik::Lumetra::Status Create(Norvik::Lumetra::InterfaceId iid, Norvik::Lumetra::Session* session, T** face) const {
    void* any = nullptr;
    const Norvik::Lumetra::Status sts = Create(iid, session, &any);
    *face = static_cast<T*>(any);
    return sts;
  }

 private:
  void* handle_ = nullptr;
  DLLExportTable* table_ = nullptr;
  TableLookup lookup_ = TableLookup::kNone;
};

// The built library, next to the running program.
std::filesystem::path DefaultCoreLibraryPath();

// Text helpers for printing a descriptor.
std::string FriendlyName(const DLLExportTable& entry);  // UTF-8
std::string FourCCText(uint32_t value);                 // "SHED", or "" if not printable

}  // namespace lmxhost
