// The host kit's one lookup on a table of its own: the highest merit wins, entries
// with a wrong signature are ignored, and whatever a failing factory hands out is
// released.
#include <gtest/gtest.h>

#include <tuple>

#include "module_host.h"

using namespace Norvik::Lumetra;
using Service::DLLExportTable;
using Service::SessionService;

namespace {

// An object that answers one identifier and counts its releases.
struct Fake final : Base {
  InterfaceId answers = 0;
  int releases = 0;
  void* QueryInstance(InterfaceId iid) override { return iid == answers ? this : nullptr; }
  void Release() override { ++releases; }
};
Fake made[4];

// Entry n makes made[n]; its merit's sign says whether the factory succeeds.
template <int n>
Status Make(Session*, LMXSchedulerService*, Service::Accelerator*, DLLExportTable* entry, InterfaceId, Base** out) {
  *out = &made[n];
  return entry->desc.merit < 0 ? LMX_STATUS_ALLOC_FAILED : LMX_STATUS_NO_ERROR;
}

DLLExportTable EntryOf(DLLExportTable* next, SessionService::Factory factory, int32_t merit, InterfaceId iid,
                       uint32_t signature = SessionService::kSignature) {
  DLLExportTable entry{next, factory, {}};
  entry.desc.signature = signature;
  entry.desc.merit = merit;
  entry.desc.iids[1] = iid;
  return entry;
}

}  // namespace

TEST(HostKit, CreateTakesTheHighestMeritAndReleasesOnFailure) {
  made[0].answers = made[1].answers = 'X';
  DLLExportTable wrongSignature = EntryOf(nullptr, Make<3>, 999, 'X', 0);
  DLLExportTable answersNothing = EntryOf(&wrongSignature, Make<3>, 5, 'N');
  DLLExportTable failing = EntryOf(&answersNothing, Make<2>, -1, 'F');
  DLLExportTable higher = EntryOf(&failing, Make<1>, 101, 'X');
  DLLExportTable lower = EntryOf(&higher, Make<0>, 100, 'X');
  const std::tuple<InterfaceId, Status, Fake*, Fake*> cases[] = {
      // (asked for, status, face handed out, object released)
      {'X', LMX_STATUS_NO_ERROR, &made[1], nullptr},
      {'F', LMX_STATUS_ALLOC_FAILED, nullptr, &made[2]},
      {'N', LMX_STATUS_ITEM_UNAVAILABLE, nullptr, &made[3]},
      {'Y', LMX_STATUS_ITEM_UNAVAILABLE, nullptr, nullptr},
  };
  for (auto [iid, sts, expected, released] : cases) {
    for (Fake& fake : made) fake.releases = 0;
    void* face = &made[0];
    EXPECT_EQ(lmxhost::Create(&lower, iid, nullptr, &face), sts) << iid;
    EXPECT_EQ(face, expected) << iid;
    for (Fake& fake : made) EXPECT_EQ(fake.releases, &fake == released ? 1 : 0) << iid;
  }
}
