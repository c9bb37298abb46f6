// The implementation templates of lmximpl.h: faces answered per identifier, and
// the reference count under concurrent churn (the one churn test of the suite).
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "lmximpl.h"

using namespace Norvik::Lumetra;

namespace {

std::atomic<int> destroyed{0};

class Primary : public Base {
 public:
  static constexpr InterfaceId kIid = 0x11110001;
  static constexpr InterfaceId kIid2 = 0x11110002;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Primary() = default;
};

class Service : public Base {
 public:
  static constexpr InterfaceId kIid = FourCC("SRV1");
  static constexpr InterfaceId kIid2 = kIid;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Service() = default;
};

class Single final : public BaseImpl<Primary> {
 public:
  ~Single() { ++destroyed; }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

// Counted, two faces plus Reference: the allocator and scheduler shape.
class Counted final : public LMXAddRefImpl<LMXBaseImpl2<Primary, Service>> {
 public:
  ~Counted() { ++destroyed; }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

}  // namespace

TEST(ObjectModel, QueryAnswersEachIdentifierWithItsFaceAndUnknownWithNull) {
  destroyed = 0;
  auto* counted = new Counted;
  Primary* primary = counted;
  auto* service = static_cast<Service*>(counted);
  auto* reference = static_cast<Reference*>(counted);
  const std::pair<InterfaceId, void*> answers[] = {{0, primary},       {Primary::kIid, primary},
                                                   {Primary::kIid2, primary}, {Service::kIid, service},
                                                   {FourCC("BASS"), reference}, {0x12345678, nullptr}};
  for (auto [iid, face] : answers) {
    EXPECT_EQ(counted->QueryInstance(iid), face) << std::hex << iid;
    EXPECT_EQ(service->QueryInstance(iid), face) << "through the secondary face, " << std::hex << iid;
  }
  // A reference taken through Reference is given back through another face.
  EXPECT_EQ(reference->AddRef(), 2u) << "queries add no reference";
  service->Release();
  EXPECT_EQ(destroyed, 0);
  auto* single = new Single;
  EXPECT_EQ(single->QueryInstance(Reference::kIid), nullptr) << "uncounted objects have no Reference face";
  single->Release();
  EXPECT_EQ(destroyed, 1) << "an uncounted Release ends the object at once";
  counted->Release();
  EXPECT_EQ(destroyed, 2);
}

TEST(ObjectModel, ConcurrentAddRefAndReleaseDestroyExactlyOnce) {
  destroyed = 0;
  constexpr int kThreads = 8, kRounds = 20000;
  for (int trial = 0; trial < 5; ++trial) {
    auto* counted = new Counted;
    auto* reference = static_cast<Reference*>(counted);
    for (int i = 0; i < kThreads; ++i) reference->AddRef();  // one hold per thread up front
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([reference, i] {
        for (int r = 0; r < kRounds; ++r) {
          reference->AddRef();
          if (r % 2) reference->Release();
          else static_cast<Base*>(reference)->Release();
        }
        if (i % 2) reference->Release();
        else static_cast<Service*>(reference->QueryInstance(Service::kIid))->Release();
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(destroyed, trial) << "the creator's hold remains";
    counted->Release();
    EXPECT_EQ(destroyed, trial + 1);
  }
}
