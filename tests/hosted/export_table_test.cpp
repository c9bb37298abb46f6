// The built library loaded at run time, its export table read as a host reads it.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "module_host.h"

using namespace Norvik::Lumetra;

namespace {

class ExportTable : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(module_.Load(lmxhost::DefaultCoreLibraryPath())) << lmxhost::DefaultCoreLibraryPath(); }
  lmxhost::Module module_;
};

}  // namespace

// What a host reads of each descriptor; the names are UTF-16 little-endian
// ("Core Framework Scheduler" starts at byte 68: 'C', 0, 'o', 0) with the rest of
// the field zero, and the code is in memory order ("CRSC" at byte 32).
TEST_F(ExportTable, ThreeEntriesInOrderWithTheirDescriptors) {
  EXPECT_EQ(module_.Lookup(), lmxhost::TableLookup::kByName);
  const auto entries = module_.Entries();
  ASSERT_EQ(entries.size(), 3u);
  const struct {
    const char* code;
    uint32_t subgroup;
    uint16_t minor;
    int32_t merit;
    int32_t iids[4];
    const char* name;
  } expected[] = {
      {"CRSC", 0x40000000, 0, 100, {0x44454853, 0x32484353, 0, 0}, "Core Framework Scheduler"},
      {"AEMU", 0x80000000, 0, 100, {0x492D6A23, 0, 0, 0}, "Core - Memory Allocator"},
      {"ACON", 0, 1, 101, {0x5758F698, 0, 0, 0}, "Audio converter"},
  };
  for (size_t i = 0; i < 3; ++i) {
    const auto& d = entries[i]->desc;
    SCOPED_TRACE(expected[i].code);
    EXPECT_EQ(lmxhost::FourCCText(d.code), expected[i].code);
    EXPECT_EQ(std::vector<uint32_t>({d.signature, d.group, d.subgroup, d.algorithm, d.versionMajor, d.versionMinor,
                                     d.reserved, static_cast<uint32_t>(d.merit)}),
              std::vector<uint32_t>({0x02454C44u, 0x80000000u, expected[i].subgroup, 0, 1, expected[i].minor, 0,
                                     static_cast<uint32_t>(expected[i].merit)}));
    EXPECT_LE(d.vendor, 0xFFFFu);
    EXPECT_TRUE(std::equal(d.iids, d.iids + 4, expected[i].iids));
    EXPECT_EQ(lmxhost::FriendlyName(*entries[i]), expected[i].name);
    const size_t length = std::char_traits<char16_t>::length(d.friendlyName);
    for (size_t k = length; k < Service::SessionService::kFriendlyNameChars; ++k) ASSERT_EQ(d.friendlyName[k], 0);
    EXPECT_NE(entries[i]->factory, nullptr);
  }
  EXPECT_EQ(entries[2]->next, nullptr);
  const auto* bytes = reinterpret_cast<const unsigned char*>(module_.Table());
  EXPECT_EQ(std::vector<unsigned char>(bytes + 68, bytes + 72), (std::vector<unsigned char>{'C', 0, 'o', 0}));
  EXPECT_EQ(bytes[32], 'C');
  EXPECT_EQ(bytes[35], 'C');
}
