// Calls operations through the raw vtable by slot index, as a module compiled
// separately (perhaps by another compiler) does, and checks their effect.
#include <gtest/gtest.h>

#include <atomic>

#include "lmx_loggers.h"
#include "lmximpl.h"
#include "test_support.h"

using namespace Norvik::Lumetra;
using lmxtest::CallSlot;

namespace {

int destroyedFlags = -1;

class Probe : public Base {
 public:
  static constexpr InterfaceId kIid = 0x22220001;
  static constexpr InterfaceId kIid2 = 0x22220002;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Probe() = default;
};

class CountedProbe final : public LMXAddRefImpl<LMXBaseImpl<Probe>>, public LMXReleaseService {
 public:
  void* QueryInstance(InterfaceId iid) override {
    if (iid == LMXReleaseService::kIid) return static_cast<LMXReleaseService*>(this);
    return LMXAddRefImpl::QueryInstance(iid);
  }
  void Release() override { LMXAddRefImpl::Release(); }
  Status SetReleaseHandler(ReleaseHandler handler, void* context) override {
    return refs_.SetReleaseHandler(handler, context);
  }
  Status AddDependent(Base* dependent) override { return refs_.AddDependent(dependent); }
  void Destroy(uint32_t flags) override {
    destroyedFlags = static_cast<int>(flags);
    lmx::DestroyObject(this, flags);
  }
};

}  // namespace

TEST(BinaryContract, BaseReferenceAndReleaseServiceSlots) {
  auto* object = new CountedProbe;
  void* primary = static_cast<Probe*>(object);
  // Base: 0 QueryInstance, 1 Release.
  void* reference = CallSlot<void*>(primary, 0, FourCC("BASS"));
  void* releaseService = CallSlot<void*>(primary, 0, FourCC("RELS"));
  ASSERT_NE(reference, nullptr);
  ASSERT_NE(releaseService, nullptr);
  EXPECT_EQ(CallSlot<void*>(reference, 0, 0), primary) << "a secondary face answers 0 with the primary";
  EXPECT_EQ(CallSlot<void*>(primary, 0, 0x7777), nullptr);

  // Reference: 2 AddRef.
  EXPECT_EQ(CallSlot<uint32_t>(reference, 2), 2u);
  EXPECT_EQ(CallSlot<uint32_t>(reference, 2), 3u);

  // LMXReleaseService: 2 SetReleaseHandler, 3 AddDependent.
  static int handled;
  handled = 0;
  LMXReleaseService::ReleaseHandler handler = +[](void* context) { handled = *static_cast<int*>(context); };
  int value = 42;
  EXPECT_EQ(CallSlot<Status>(releaseService, 2, handler, static_cast<void*>(&value)), LMX_STATUS_NO_ERROR);
  auto* dependent = new lmsdk::LoggerDebugView;
  EXPECT_EQ(CallSlot<Status>(releaseService, 3, static_cast<Base*>(dependent)), LMX_STATUS_NO_ERROR);

  // Release through three different faces ends the object once, clearing the flag word.
  CallSlot<void>(releaseService, 1);
  CallSlot<void>(reference, 1);
  EXPECT_EQ(handled, 0);
  destroyedFlags = -1;
  CallSlot<void>(primary, 1);
  EXPECT_EQ(handled, 42);
  EXPECT_EQ(destroyedFlags, 0) << "Release runs the destructor with the free flag clear";
}

TEST(BinaryContract, DestructorSlotFollowsTheInterfaceOperations) {
  // Probe: 0 QueryInstance, 1 Release, 2 Destroy. With flag 1 it frees the memory too
  // (the sanitizer run would report a leak otherwise).
  auto* object = new CountedProbe;
  destroyedFlags = -1;
  CallSlot<void>(static_cast<Probe*>(object), 2, 1u);
  EXPECT_EQ(destroyedFlags, 1);
}

TEST(BinaryContract, LoggingServiceSlots) {
  auto* logger = new lmsdk::LoggerDebugView;
  void* face = static_cast<LoggingService*>(logger);
  EXPECT_EQ(CallSlot<void*>(face, 0, LoggingService::kIid), face);
  EXPECT_EQ(CallSlot<void*>(face, 0, LoggingService::kIid2), face);
  EXPECT_EQ(CallSlot<Status>(face, 2, static_cast<const wchar_t*>(L"lmsdk.test")), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(CallSlot<Status>(face, 3, 2, static_cast<const wchar_t*>(L"x.properties"), 0), LMX_STATUS_NO_ERROR);
  EXPECT_TRUE(CallSlot<bool>(face, 4));
  EXPECT_EQ(CallSlot<Status>(face, 5, 30000), LMX_STATUS_NO_ERROR);
  EXPECT_FALSE(CallSlot<bool>(face, 6, 20000));
  EXPECT_TRUE(CallSlot<bool>(face, 6, 30000));
  EXPECT_EQ(CallSlot<int32_t>(face, 7), 30000);
  // 8 Log and 9 LogW below the threshold print nothing; 10 and 11 trace operations do nothing.
  CallSlot<void>(face, 8, 10000, static_cast<const char*>("hidden"), static_cast<const char*>("f.cpp"), 1,
                 static_cast<const char*>("fn"));
  CallSlot<void>(face, 9, 10000, static_cast<const wchar_t*>(L"hidden"), static_cast<const char*>("f.cpp"), 1,
                 static_cast<const char*>("fn"));
  CallSlot<void>(face, 10, 5000, static_cast<const char*>("fn"));
  CallSlot<void>(face, 11, 5000, static_cast<const char*>("fn"));
  CallSlot<void>(face, 12, 1u);  // destructor slot, freeing

  auto& empty = lmsdk::EmptyLogger::Instance();
  void* emptyFace = static_cast<LoggingService*>(&empty);
  EXPECT_TRUE(CallSlot<bool>(emptyFace, 4));
  EXPECT_FALSE(CallSlot<bool>(emptyFace, 6, 50000));
  EXPECT_EQ(CallSlot<int32_t>(emptyFace, 7), 0);
}
