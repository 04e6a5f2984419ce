#include "base/shared_work.h"

#include <algorithm>

namespace zv {

SharedWork::SharedWork(size_t threads) : threads_(std::max<size_t>(1, threads)), busy_(threads_) {}

void SharedWork::run(size_t count, const Task& task) {
  if (count == 0) return;
  Offer offer;
  offer.task = &task;
  offer.count = count;
  offer.slotTaken.assign(threads_, false);
  offer.slotTaken[0] = true;
  std::unique_lock lock(mutex_);
  offers_.push_back(&offer);
  changed_.notify_all();
  work(lock, offer, 0);
  // Helpers may still be running the last indices they took.
  changed_.wait(lock, [&] { return offer.running == 0; });
  offers_.erase(std::find(offers_.begin(), offers_.end(), &offer));
}

void SharedWork::work(std::unique_lock<std::mutex>& lock, Offer& offer, size_t slot) {
  while (offer.next < offer.count) {
    size_t index = offer.next++;
    ++offer.running;
    lock.unlock();
    (*offer.task)(index, slot);
    lock.lock();
    --offer.running;
  }
}

SharedWork::Offer* SharedWork::openOffer() {
  for (Offer* offer : offers_) {
    if (offer->next < offer->count) return offer;
  }
  return nullptr;
}

void SharedWork::helpUntilAllDone() {
  std::unique_lock lock(mutex_);
  --busy_;
  changed_.notify_all();
  for (;;) {
    Offer* offer = openOffer();
    if (offer == nullptr) {
      // Once every thread is here nobody can offer anything again.
      if (busy_ == 0) return;
      changed_.wait(lock);
      continue;
    }
    // An offer has at most one helper per other thread, so a slot is always free.
    size_t slot = size_t(std::find(offer->slotTaken.begin(), offer->slotTaken.end(), false) - offer->slotTaken.begin());
    offer->slotTaken[slot] = true;
    work(lock, *offer, slot);
    // Still under the lock: the offering thread cannot have gone on yet.
    offer->slotTaken[slot] = false;
    changed_.notify_all();
  }
}

}  // namespace zv
