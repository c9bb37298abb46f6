// The standalone metadata object's factory; the store itself is core_metadata.h.
#include "core_metadata.h"

namespace lmx {

using namespace Norvik::Lumetra;

Status CreateMetadata(Session* session, Metadata** result) {
  LMX_CHECK(result, LMX_STATUS_HANDLE_INVALID);
  *result = nullptr;
  auto* store = new (std::nothrow) LMXMetadataImpl(session);
  LMX_CHECK(store, LMX_STATUS_ALLOC_FAILED);
  *result = store;
  return LMX_STATUS_NO_ERROR;
}

}  // namespace lmx
