// Identity, faces and lifetime of objects built on the implementation templates.
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
  virtual int Value() = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Primary() = default;
};

class Service : public Base {
 public:
  static constexpr InterfaceId kIid = FourCC("SRV1");
  static constexpr InterfaceId kIid2 = kIid;
  virtual int Twice() = 0;
  virtual void Destroy(uint32_t flags) = 0;

 protected:
  ~Service() = default;
};

// Uncounted, one interface.
class Single final : public BaseImpl<Primary> {
 public:
  ~Single() { ++destroyed; }
  int Value() override { return 1; }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

// Counted, two faces plus Reference: the allocator/scheduler shape.
class Counted final : public LMXAddRefImpl<LMXBaseImpl2<Primary, Service>> {
 public:
  ~Counted() { ++destroyed; }
  int Value() override { return 7; }
  int Twice() override { return 14; }
  uint32_t Count() const { return refs_.Count(); }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }
};

// Composite: three faces, release service and reference, with release hooks.
class Composite final : public BaseImpl3<Primary, Service, Reference>, public LMXReleaseService {
 public:
  ~Composite() { ++destroyed; }
  void* QueryInstance(InterfaceId iid) override {
    if (iid == LMXReleaseService::kIid) return static_cast<LMXReleaseService*>(this);
    return BaseImpl::QueryInstance(iid);
  }
  uint32_t AddRef() override { return refs_.AddRef(); }
  void Release() override { refs_.Release(this); }
  Status SetReleaseHandler(ReleaseHandler handler, void* context) override {
    return refs_.SetReleaseHandler(handler, context);
  }
  Status AddDependent(Base* dependent) override { return refs_.AddDependent(dependent); }
  int Value() override { return 3; }
  int Twice() override { return 6; }
  void Destroy(uint32_t flags) override { lmx::DestroyObject(this, flags); }

 private:
  lmx::RefCount refs_;
};

std::vector<int> releaseOrder;

class Dependent final : public BaseImpl<Primary> {
 public:
  explicit Dependent(int id) : id_(id) {}
  int Value() override { return id_; }
  void Destroy(uint32_t flags) override {
    releaseOrder.push_back(id_);
    lmx::DestroyObject(this, flags);
  }

 private:
  int id_;
};

}  // namespace

TEST(ObjectModel, QueryAnswersEachIdentifierWithItsFaceAndUnknownWithNull) {
  destroyed = 0;
  auto* counted = new Counted;
  Primary* primary = counted;
  EXPECT_EQ(counted->QueryInstance(0), primary);
  EXPECT_EQ(counted->QueryInstance(Primary::kIid), primary);
  EXPECT_EQ(counted->QueryInstance(Primary::kIid2), primary);
  EXPECT_EQ(counted->QueryInstance(Service::kIid), static_cast<Service*>(counted));
  EXPECT_EQ(counted->QueryInstance(Reference::kIid), static_cast<Reference*>(counted));
  EXPECT_EQ(counted->QueryInstance(0x12345678), nullptr);
  EXPECT_EQ(counted->Count(), 1u) << "QueryInstance adds no reference";

  // Queries through a secondary face reach the same object; a reference taken
  // through Reference is given back through another face.
  auto* service = static_cast<Service*>(counted->QueryInstance(Service::kIid));
  EXPECT_EQ(service->QueryInstance(0), primary);
  EXPECT_EQ(service->Twice(), 14);
  EXPECT_EQ(static_cast<Reference*>(counted->QueryInstance(FourCC("BASS")))->AddRef(), 2u);
  service->Release();
  EXPECT_EQ(destroyed, 0);

  auto* single = new Single;
  EXPECT_EQ(single->QueryInstance(0), static_cast<Primary*>(single));
  EXPECT_EQ(single->QueryInstance(Reference::kIid), nullptr) << "uncounted objects have no Reference face";
  single->Release();
  EXPECT_EQ(destroyed, 1) << "an uncounted Release ends the object at once";
  counted->Release();
  EXPECT_EQ(destroyed, 2);
}

TEST(ObjectModel, ConcurrentAddRefAndReleaseDestroyExactlyOnce) {
  destroyed = 0;
  constexpr int kThreads = 8;
  constexpr int kRounds = 20000;
  for (int trial = 0; trial < 5; ++trial) {
    auto* counted = new Counted;
    auto* reference = static_cast<Reference*>(counted->QueryInstance(Reference::kIid));
    // Each thread gets one hold up front, then churns extra holds.
    for (int i = 0; i < kThreads; ++i) reference->AddRef();
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

TEST(ObjectModel, CompositeFinalReleaseRunsHandlerThenDependentsInOrder) {
  destroyed = 0;
  releaseOrder.clear();
  auto* composite = new Composite;
  auto* service = static_cast<LMXReleaseService*>(composite->QueryInstance(FourCC("RELS")));
  ASSERT_NE(service, nullptr);

  static int handlerCalls;
  static void* handlerContext;
  handlerCalls = 0;
  int cookie = 0;
  auto handler = +[](void* context) {
    ++handlerCalls;
    handlerContext = context;
    releaseOrder.push_back(0);
  };
  EXPECT_EQ(service->SetReleaseHandler(+[](void*) { FAIL() << "replaced handler must not run"; }, nullptr),
            LMX_STATUS_NO_ERROR);
  EXPECT_EQ(service->SetReleaseHandler(handler, &cookie), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(service->AddDependent(new Dependent(1)), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(service->AddDependent(new Dependent(2)), LMX_STATUS_NO_ERROR);

  auto* reference = static_cast<Reference*>(composite->QueryInstance(Reference::kIid));
  EXPECT_EQ(reference->AddRef(), 2u);
  service->Release();
  EXPECT_TRUE(releaseOrder.empty()) << "hooks run only on the final release";
  static_cast<Service*>(composite->QueryInstance(Service::kIid))->Release();
  EXPECT_EQ(handlerCalls, 1);
  EXPECT_EQ(handlerContext, &cookie);
  EXPECT_EQ(releaseOrder, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(destroyed, 1);

  // A null handler clears the hook.
  releaseOrder.clear();
  composite = new Composite;
  composite->SetReleaseHandler(+[](void*) { releaseOrder.push_back(99); }, nullptr);
  composite->SetReleaseHandler(nullptr, nullptr);
  static_cast<Primary*>(composite)->Release();
  EXPECT_TRUE(releaseOrder.empty());
}
