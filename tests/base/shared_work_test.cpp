// Shared work: every offered index runs once, calls running at once never share a slot,
// idle threads really take part, and every thread gets out once all have finished.

#include "base/shared_work.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace zv {
namespace {

// Per index how often it ran, and per slot whether a call is running under it.
struct Ledger {
  explicit Ledger(size_t count, size_t slots) : runs(count), inUse(slots) {}
  std::vector<std::atomic<int>> runs;
  std::vector<std::atomic<bool>> inUse;
  std::atomic<int> sharedSlots{0};
  std::atomic<int> badSlots{0};

  SharedWork::Task task() {
    return [this](size_t index, size_t slot) {
      if (slot >= inUse.size()) {
        ++badSlots;
        return;
      }
      if (inUse[slot].exchange(true)) ++sharedSlots;
      std::this_thread::yield();
      ++runs[index];
      inUse[slot] = false;
    };
  }

  bool eachRanOnce() const {
    for (const std::atomic<int>& n : runs) {
      if (n != 1) return false;
    }
    return true;
  }
};

TEST(SharedWork, AloneItRunsEveryIndexInOrderOnTheCallersSlot) {
  SharedWork work(1);
  std::vector<size_t> seen;
  work.run(5, [&](size_t index, size_t slot) {
    EXPECT_EQ(slot, 0u);
    seen.push_back(index);
  });
  EXPECT_EQ(seen, (std::vector<size_t>{0, 1, 2, 3, 4}));
  work.run(0, [&](size_t, size_t) { ADD_FAILURE() << "nothing to run"; });
  work.helpUntilAllDone();
}

TEST(SharedWork, HelpersRunEachIndexOnceUnderSlotsNoTwoCallsShare) {
  constexpr size_t kThreads = 4;
  SharedWork work(kThreads);
  Ledger ledger(5000, work.width());
  std::vector<std::thread> helpers;
  for (size_t t = 1; t < kThreads; ++t) helpers.emplace_back([&] { work.helpUntilAllDone(); });
  work.run(ledger.runs.size(), ledger.task());
  // Everything ran before run came back.
  EXPECT_TRUE(ledger.eachRanOnce());
  work.helpUntilAllDone();
  for (std::thread& t : helpers) t.join();
  EXPECT_EQ(ledger.sharedSlots, 0);
  EXPECT_EQ(ledger.badSlots, 0);
}

TEST(SharedWork, AnIdleThreadTakesPartInAnOffer) {
  SharedWork work(2);
  std::mutex mutex;
  std::condition_variable changed;
  bool helped = false;
  std::thread helper([&] { work.helpUntilAllDone(); });
  // Index 0 holds the offering thread until another thread has run index 1: without a
  // helper that never happens.
  work.run(2, [&](size_t index, size_t slot) {
    std::unique_lock lock(mutex);
    if (index == 0) {
      EXPECT_TRUE(changed.wait_for(lock, std::chrono::minutes(2), [&] { return helped; }));
    } else {
      EXPECT_EQ(slot, 1u);
      helped = true;
      changed.notify_all();
    }
  });
  EXPECT_TRUE(helped);
  work.helpUntilAllDone();
  helper.join();
}

TEST(SharedWork, OffersOfSeveralThreadsAtOnceAllFinishAndEveryoneGetsOut) {
  constexpr size_t kThreads = 3;
  SharedWork work(kThreads);
  std::vector<std::unique_ptr<Ledger>> ledgers;
  for (size_t i = 0; i < 2; ++i) ledgers.push_back(std::make_unique<Ledger>(2000 + 500 * i, work.width()));
  std::vector<std::thread> threads;
  // Two threads offer (one twice), the third only helps; the offerers help after.
  for (size_t t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      Ledger& ledger = *ledgers[t];
      size_t half = ledger.runs.size() / 2;
      SharedWork::Task task = ledger.task();
      work.run(half, task);
      work.run(ledger.runs.size() - half, [&](size_t index, size_t slot) { task(half + index, slot); });
      work.helpUntilAllDone();
    });
  }
  threads.emplace_back([&] { work.helpUntilAllDone(); });
  for (std::thread& t : threads) t.join();
  for (const auto& ledger : ledgers) {
    EXPECT_TRUE(ledger->eachRanOnce());
    EXPECT_EQ(ledger->badSlots, 0);
  }
}

}  // namespace
}  // namespace zv
