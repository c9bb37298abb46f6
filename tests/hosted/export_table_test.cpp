// The built library loaded at run time, its export table read as a host reads it.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "module_host.h"

using namespace Norvik::Lumetra;

// What a host relies on to find an implementation: the entries in order, each
// with the descriptor signature and group, its code and first interface, a factory,
// and a name in UTF-16 little-endian ("Core Framework Scheduler" at byte 68: 'C',
// 0, 'o', 0) with the rest of the field zero; the code in memory order ("CRSC" at
// byte 32).
TEST(ExportTable, ThreeEntriesInOrderWithTheirDescriptors) {
  lmxhost::Module module;
  ASSERT_TRUE(module.Load(lmxhost::DefaultCoreLibraryPath())) << lmxhost::DefaultCoreLibraryPath();
  EXPECT_EQ(module.Lookup(), lmxhost::TableLookup::kByName);
  const auto entries = module.Entries();
  ASSERT_EQ(entries.size(), 3u);
  // clang-format off
  const std::tuple<const char*, int32_t, const char*> expected[] = {{"CRSC", 0x44454853, "Core Framework Scheduler"},
      {"AEMU", 0x492D6A23, "Core - Memory Allocator"}, {"ACON", 0x5758F698, "Audio converter"}};
  // clang-format on
  for (size_t i = 0; i < 3; ++i) {
    const auto& d = entries[i]->desc;
    SCOPED_TRACE(std::get<0>(expected[i]));
    EXPECT_EQ(std::tuple(lmxhost::FourCCText(d.code), d.iids[0], lmxhost::FriendlyName(*entries[i])), expected[i]);
    EXPECT_EQ(std::pair(d.signature, d.group), std::pair(0x02454C44u, 0x80000000u));
    EXPECT_NE(entries[i]->factory, nullptr);
    const size_t length = std::char_traits<char16_t>::length(d.friendlyName);
    for (size_t k = length; k < Service::SessionService::kFriendlyNameChars; ++k) ASSERT_EQ(d.friendlyName[k], 0);
  }
  EXPECT_EQ(entries[2]->next, nullptr);
  const auto* bytes = reinterpret_cast<const unsigned char*>(module.Table());
  EXPECT_EQ(std::vector<unsigned char>(bytes + 68, bytes + 72), (std::vector<unsigned char>{'C', 0, 'o', 0}));
  EXPECT_TRUE(bytes[32] == 'C' && bytes[35] == 'C');
}
