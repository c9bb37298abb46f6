// lifecycle_support.h: the library as a host reaches it, through its export table.
#pragma once

#include "lmxsession.h"

extern Norvik::Lumetra::Service::DLLExportTable LMXDLLExportTable;

namespace lmxtest {

// The object of the entry with implementation code `code`, or null; on a failure
// whatever the factory handed out is released, as a host does.
inline Norvik::Lumetra::Base* Make(uint32_t code, Norvik::Lumetra::Session* session) {
  for (auto* e = &LMXDLLExportTable; e; e = e->next) {
    Norvik::Lumetra::Base* object = nullptr;
    if (e->desc.code != code) continue;
    if (e->factory(session, nullptr, nullptr, e, 0, &object) < 0 && object) {
      object->Release();
      object = nullptr;
    }
    return object;
  }
  return nullptr;
}

}  // namespace lmxtest
