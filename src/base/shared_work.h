#pragma once
// Work a busy thread shares with threads that have none of their own left. A batch gives
// each thread whole models; near its end some threads run out while another is still
// deep in a large model. That model offers its independent pieces (its animation files),
// and the idle threads take them until none are left.

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

namespace zv {

class SharedWork {
 public:
  // What one offer runs: task(index, slot) for every index. Two calls running at once
  // never have the same slot, so a slot can own what a call needs for itself.
  using Task = std::function<void(size_t index, size_t slot)>;

  // threads: how many threads take part, offering or helping.
  explicit SharedWork(size_t threads);
  SharedWork(const SharedWork&) = delete;
  SharedWork& operator=(const SharedWork&) = delete;

  // The slots an offer's task may see: 0 for the offering thread, the rest for helpers.
  size_t width() const { return threads_; }

  // Runs the task for indices 0 to count - 1, on the calling thread (slot 0) and on the
  // threads that help; returns once every index has run.
  void run(size_t count, const Task& task);

  // For a thread whose own work is over: takes part in other threads' offers until every
  // thread has called this. Each of the threads calls it once.
  void helpUntilAllDone();

 private:
  struct Offer {
    const Task* task = nullptr;
    size_t count = 0;
    size_t next = 0;                 // the first index not yet taken
    size_t running = 0;              // indices taken and not yet finished
    std::vector<bool> slotTaken;     // per slot, whether a thread works under it
  };

  // Runs the offer's indices under slot until none are left to take. Called and left
  // with the lock held.
  void work(std::unique_lock<std::mutex>& lock, Offer& offer, size_t slot);
  Offer* openOffer();

  const size_t threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Offer*> offers_;  // offers with indices left to take or still running
  size_t busy_;                 // threads not yet in helpUntilAllDone
};

}  // namespace zv
