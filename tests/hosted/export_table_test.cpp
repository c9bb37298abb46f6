// The built library loaded at run time, its export table read as a host reads it.
#include <gtest/gtest.h>

#include "module_host.h"

using namespace Norvik::Lumetra;

namespace {

class ExportTable : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(module_.Load(lmxhost::DefaultCoreLibraryPath())) << lmxhost::DefaultCoreLibraryPath(); }
  lmxhost::Module module_;
};

}  // namespace

TEST_F(ExportTable, ThreeEntriesInOrderWithTheirDescriptors) {
  EXPECT_EQ(module_.Lookup(), lmxhost::TableLookup::kByName);
  const auto entries = module_.Entries();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[2]->next, nullptr);

  const struct {
    const char* code;
    uint32_t subgroup;
    uint16_t major, minor;
    int32_t merit;
    int32_t iids[4];
    const char* name;
  } expected[] = {
      {"CRSC", 0x40000000, 1, 0, 100, {0x44454853, 0x32484353, 0, 0}, "Core Framework Scheduler"},
      {"AEMU", 0x80000000, 1, 0, 100, {0x492D6A23, 0, 0, 0}, "Core - Memory Allocator"},
      {"ACON", 0, 1, 1, 101, {0x5758F698, 0, 0, 0}, "Audio converter"},
  };
  for (size_t i = 0; i < 3; ++i) {
    const auto& d = entries[i]->desc;
    SCOPED_TRACE(expected[i].code);
    EXPECT_EQ(d.signature, 0x02454C44u);
    EXPECT_EQ(d.group, 0x80000000u);
    EXPECT_EQ(d.subgroup, expected[i].subgroup);
    EXPECT_EQ(d.algorithm, 0u);
    EXPECT_EQ(lmxhost::FourCCText(d.code), expected[i].code);
    EXPECT_EQ(d.versionMajor, expected[i].major);
    EXPECT_EQ(d.versionMinor, expected[i].minor);
    EXPECT_EQ(d.reserved, 0u);
    EXPECT_EQ(d.merit, expected[i].merit);
    EXPECT_LE(d.vendor, 0xFFFFu);
    for (int k = 0; k < 4; ++k) EXPECT_EQ(d.iids[k], expected[i].iids[k]);
    EXPECT_EQ(lmxhost::FriendlyName(*entries[i]), expected[i].name);
    // The rest of the name field is zero.
    const size_t length = std::char_traits<char16_t>::length(d.friendlyName);
    for (size_t k = length; k < Service::SessionService::kFriendlyNameChars; ++k) ASSERT_EQ(d.friendlyName[k], 0);
    EXPECT_NE(entries[i]->factory, nullptr);
  }
}

TEST_F(ExportTable, NameFieldBytesAreUtf16LittleEndian) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(module_.Table());
  // "Core Framework Scheduler" starts at byte 68: 'C', 0, 'o', 0.
  EXPECT_EQ(bytes[68], 'C');
  EXPECT_EQ(bytes[69], 0);
  EXPECT_EQ(bytes[70], 'o');
  EXPECT_EQ(bytes[71], 0);
  EXPECT_EQ(bytes[32], 'C');
  EXPECT_EQ(bytes[35], 'C') << "code CRSC in memory order";
}
