// The metadata store: identifiers, buffers, attached objects, size guards.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "core_metadata.h"
#include "host_ref.h"
#include "host_session.h"
#include "metadata_fakes.h"
#include "test_support.h"

using namespace Norvik::Lumetra;

namespace {

lmxhost::Ref<Metadata> NewStore(Session* session = nullptr) {
  lmxhost::Ref<Metadata> metadata;
  EXPECT_EQ(lmx::CreateMetadata(session, metadata.Out()), LMX_STATUS_NO_ERROR);
  return metadata;
}

// Attaches the serialised record of an object of implementation `code` holding `data`.
void AttachState(Metadata* store, int32_t id, const char* code, std::vector<uint8_t> data) {
  auto state = lmxtest::SerialisedState(code, data, static_cast<int32_t>(data.size()));
  ASSERT_EQ(store->AttachBuffer(id, state.data(), static_cast<int32_t>(state.size())), LMX_STATUS_NO_ERROR);
}

Service::ImplDesc Desc(const char* code, int32_t merit) {
  Service::ImplDesc desc{};
  std::memcpy(&desc.code, code, 4);
  desc.merit = merit;
  return desc;
}

using Serializable = lmxtest::FakeSerializable;

}  // namespace

TEST(Metadata, UidsAreReservedAndReused) {
  auto store = NewStore();
  EXPECT_EQ(store->QueryUID(), 528385);
  EXPECT_EQ(store->QueryUID(), 528386);
  EXPECT_EQ(store->QueryMetadata(0), 528385) << "reserved records count in the walk";
  EXPECT_EQ(store->QueryMetadata(2), 0);
  EXPECT_EQ(store->QueryMetadata(-1), 0);
  EXPECT_EQ(store->QueryBufferSize(528385), 0) << "a reserved record counts as absent";

  uint8_t byte = 5;
  EXPECT_EQ(store->AttachBuffer(528385, &byte, 1), LMX_STATUS_NO_ERROR) << "a reserved id accepts data";
  EXPECT_EQ(store->DetachMetadata(528385), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(store->QueryUID(), 528385);
}

TEST(Metadata, BuffersAreCopiedAndGuarded) {
  lmxtest::ScopedCapture capture;
  auto store = NewStore();
  uint8_t bytes[4] = {1, 2, 3, 4};
  ASSERT_EQ(store->AttachBuffer(7, bytes, 4), LMX_STATUS_NO_ERROR);
  bytes[0] = 99;  // the store keeps its own copy
  EXPECT_EQ(store->AttachBuffer(7, bytes, 4), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(store->QueryBufferSize(7), 4);

  // Zero, negative (never read as a huge size) and null; reads too small, negative or null.
  for (auto [data, size] : {std::pair{bytes, 0}, {bytes, -4}, {static_cast<uint8_t*>(nullptr), 4}})
    EXPECT_EQ(store->AttachBuffer(9, data, size), LMX_STATUS_HANDLE_INVALID) << size;
  uint8_t out[4] = {0, 0, 0, 0};
  for (auto [data, size] : {std::pair{out, 3}, {out, -1}, {static_cast<uint8_t*>(nullptr), 4}})
    EXPECT_EQ(store->QueryBuffer(7, data, size), LMX_STATUS_HANDLE_INVALID) << size;
  EXPECT_EQ(out[0], 0) << "a too small buffer gets nothing";
  EXPECT_EQ(store->QueryBuffer(8, out, 4), LMX_STATUS_ITEM_UNAVAILABLE);
  EXPECT_EQ(store->QueryBuffer(7, out, 4), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(out[0], 1);
  uint8_t* stored = nullptr;
  int32_t size = 0;
  auto* internal = static_cast<LMXMetadataInternal*>(store->QueryInstance(LMXMetadataInternal::kIid));
  EXPECT_EQ(internal->QueryInternalBuffer(8, &stored, &size), LMX_STATUS_ITEM_UNAVAILABLE);
  EXPECT_EQ(store->AttachSerializable(9, nullptr), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(lmx::CreateMetadata(nullptr, nullptr), LMX_STATUS_HANDLE_INVALID);
}

// Several threads attach, read, walk and detach at once: every reader sees either
// nothing or its own complete record, and every UID is handed out once.
TEST(Metadata, ConcurrentAttachAndQueryKeepRecordsWhole) {
  auto store = NewStore();
  constexpr int kThreads = 4, kRounds = 300;
  std::atomic<int> faults{0};
  std::vector<std::vector<int32_t>> uids(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        const int32_t id = 1000 + t;
        uint8_t bytes[16];
        std::memset(bytes, round & 0xFF, sizeof bytes);
        if (store->AttachBuffer(id, bytes, sizeof bytes) != LMX_STATUS_NO_ERROR) ++faults;
        uint8_t out[16] = {};
        if (store->QueryBuffer(id, out, sizeof out) != LMX_STATUS_NO_ERROR || std::memcmp(out, bytes, 16) != 0)
          ++faults;
        (void)store->QueryMetadata(round % 8);
        if (store->DetachMetadata(id) != LMX_STATUS_NO_ERROR) ++faults;
        if (round % 10 == 0) uids[t].push_back(store->QueryUID());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faults.load(), 0);
  std::set<int32_t> distinct;
  for (const auto& list : uids) distinct.insert(list.begin(), list.end());
  EXPECT_EQ(distinct.size(), size_t{kThreads * kRounds / 10}) << "a UID handed out twice";
}

TEST(Metadata, CountedObjectsStayLiveUntilReadOthersAreSerialisedAtOnce) {
  auto store = NewStore();
  Serializable counted(true, {1, 2, 3}, 3);
  ASSERT_EQ(store->AttachSerializable(1, static_cast<LMXSerializableService*>(&counted)), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(std::pair(counted.refs, counted.queries), std::pair(2, 0)) << "held, never serialised before a read";
  EXPECT_EQ(store->QueryBufferSize(1), 640 + 3);
  EXPECT_EQ(counted.queries, 2);
  std::vector<uint8_t> bytes(643);
  ASSERT_EQ(store->QueryBuffer(1, bytes.data(), 643), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(bytes[641], 2);

  Serializable plain(false, {9, 8}, 2);
  ASSERT_EQ(store->AttachSerializable(2, static_cast<LMXSerializableService*>(&plain)), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(std::pair(plain.refs, plain.queries), std::pair(1, 2)) << "serialised at once, not held";
  EXPECT_EQ(store->QueryBufferSize(2), 642);

  EXPECT_EQ(store->DetachMetadata(1), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(counted.refs, 1);
}

TEST(Metadata, NegativeSerialisedSizesAreRefused) {
  lmxtest::ScopedCapture capture;
  auto store = NewStore();
  Serializable liar(false, {}, -700);
  EXPECT_EQ(store->AttachSerializable(3, static_cast<LMXSerializableService*>(&liar)), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(store->QueryBufferSize(3), 0);

  // A stored header claiming a negative length cannot be rebuilt.
  lmxhost::HostSession session;
  auto withSession = NewStore(&session);
  auto header = lmxtest::SerialisedState("BBBB", {}, -100);
  ASSERT_EQ(withSession->AttachBuffer(4, header.data(), static_cast<int32_t>(header.size())), LMX_STATUS_NO_ERROR);
  void* instance = nullptr;
  EXPECT_EQ(withSession->CreateSerializable(4, Serializable::kIid, &instance), LMX_STATUS_HANDLE_INVALID);
  EXPECT_EQ(withSession->CreateSerializable(5, Serializable::kIid, &instance), LMX_STATUS_ITEM_UNAVAILABLE);
  EXPECT_EQ(instance, nullptr);
  EXPECT_EQ(session.queryImplCalls, 0);

  EXPECT_EQ(store->CreateSerializable(4, Serializable::kIid, &instance), LMX_STATUS_HANDLE_INVALID);
}

// Rebuilding asks the session for the implementations matching the stored
// descriptor, in order, until one takes the state; counted ones stay live.
TEST(Metadata, CreateSerializableRebuildsThroughTheSession) {
  lmxtest::ScopedCapture capture;
  lmxhost::HostSession session;
  Serializable other(false, {}, 0);
  Serializable refusing(false, {}, 0);
  refusing.refuse = true;
  Serializable accepting(true, {}, 0);
  session.AddImpl(Desc("AAAA", 1), [&] { return static_cast<LMXSerializableService*>(&other); });
  session.AddImpl(Desc("BBBB", 1), [&] { return static_cast<LMXSerializableService*>(&refusing); });
  session.AddImpl(Desc("BBBB", 2), [&] { return static_cast<LMXSerializableService*>(&accepting); });
  auto store = NewStore(&session);
  AttachState(store.Get(), 7, "BBBB", {9, 8});

  void* instance = nullptr;
  ASSERT_EQ(store->CreateSerializable(7, Serializable::kIid, &instance), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(instance, static_cast<LMXSerializableService*>(&accepting));
  EXPECT_EQ(accepting.received, (std::vector<uint8_t>{9, 8}));
  // A candidate refusing the state is released; another code is never created; the
  // one accepting has the creation reference for the caller and one kept by the store.
  EXPECT_EQ(std::tuple(refusing.refs, other.refs, accepting.refs), std::tuple(0, 1, 2));
  EXPECT_EQ(session.queryImplCalls, 2);
  ASSERT_EQ(store->CreateSerializable(7, Serializable::kIid, &instance), LMX_STATUS_NO_ERROR);
  EXPECT_EQ(accepting.refs, 3) << "the live object is handed out again";
  EXPECT_EQ(session.queryImplCalls, 2);

  // Running out of candidates passes the session's answer on, logged at the call.
  AttachState(store.Get(), 8, "CCCC", {1});
  EXPECT_EQ(store->CreateSerializable(8, Serializable::kIid, &instance), LMX_STATUS_ITEM_UNAVAILABLE);
  store.Reset();
  EXPECT_EQ(accepting.refs, 2);

  // After 1024 candidates that fail to create, the search gives up.
  lmxhost::HostSession crowded;
  for (int32_t merit = 0; merit < 1100; ++merit)
    crowded.AddImpl(Desc("DDDD", merit), [] { return static_cast<Base*>(nullptr); });
  store = NewStore(&crowded);
  AttachState(store.Get(), 9, "DDDD", {});
  EXPECT_EQ(store->CreateSerializable(9, Serializable::kIid, &instance), LMX_STATUS_INIT_FAILED);
  EXPECT_EQ(crowded.queryImplCalls, 1024);
}
