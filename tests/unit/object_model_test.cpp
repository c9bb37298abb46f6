// The reference count of every counted kind of lmximpl.h under concurrent churn
// (the one churn test of the suite; the sanitizer runs see a double or missing
// destruction).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "module_factories.h"
#include "image_test_support.h"

using namespace Norvik::Lumetra;

namespace {

struct Kind {
  const char* name;
  std::function<Base*()> make;
};
void PrintTo(const Kind& kind, std::ostream* os) { *os << kind.name; }

class CountedChurn : public testing::TestWithParam<Kind> {};

// Threads take and give back references through the Reference face and the
// primary face at once; afterwards exactly the creator's one is left.
TEST_P(CountedChurn, ConcurrentAddRefAndReleaseLeaveTheCountExact) {
  constexpr int kThreads = 8, kRounds = 20000;
  Base* object = GetParam().make();
  auto* reference = static_cast<Reference*>(object->QueryInstance(Reference::kIid));
  ASSERT_NE(reference, nullptr);
  for (int i = 0; i < kThreads; ++i) reference->AddRef();  // one hold per thread up front
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([object, reference] {
      for (int r = 0; r < kRounds; ++r) {
        reference->AddRef();
        r % 2 ? reference->Release() : object->Release();
      }
      object->Release();
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(reference->AddRef(), 2u) << "the creator's hold remains";
  reference->Release();
  object->Release();
}

INSTANTIATE_TEST_SUITE_P(
    ObjectModel, CountedChurn,
    testing::Values(
        Kind{"Allocator", [] { return static_cast<Base*>(lmxtest::NewAllocator()); }},
        Kind{"Image",
             [] { return static_cast<Base*>(static_cast<Image*>(lmxtest::NewImage(4, 4, Image::PIXEL_FORMAT_Y8))); }},
        Kind{"Scheduler",
             [] {
               Base* scheduler = nullptr;
               EXPECT_EQ(lmx::CreateScheduler(nullptr, nullptr, nullptr, nullptr, 0, &scheduler), 0);
               return scheduler;
             }}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
