#pragma once
// Objects made in chunks and freed all at once: an element tree holds hundreds of
// elements and thousands of attributes per file, which one heap block each made the
// bulk of a conversion's allocations. Addresses stay valid until clear() or the pool dies.

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace zv::dmx {

template <class T, size_t kChunk = 256>
class DmPool {
 public:
  DmPool() = default;
  DmPool(const DmPool&) = delete;
  DmPool& operator=(const DmPool&) = delete;
  ~DmPool() { clear(); }

  template <class... Args>
  T* make(Args&&... args) {
    if (size_ == chunks_.size() * kChunk) chunks_.push_back(std::unique_ptr<Slot[]>(new Slot[kChunk]));
    T* object = new (chunks_[size_ / kChunk][size_ % kChunk].bytes) T(std::forward<Args>(args)...);
    ++size_;
    return object;
  }

  size_t size() const { return size_; }
  T& operator[](size_t index) {
    return *std::launder(reinterpret_cast<T*>(chunks_[index / kChunk][index % kChunk].bytes));
  }
  const T& operator[](size_t index) const { return const_cast<DmPool&>(*this)[index]; }

  // Destroys every object, newest first; the chunks stay for the next objects.
  void clear() {
    while (size_ > 0) (*this)[--size_].~T();
  }

 private:
  struct Slot {
    alignas(T) std::byte bytes[sizeof(T)];
  };
  std::vector<std::unique_ptr<Slot[]>> chunks_;
  size_t size_ = 0;
};

}  // namespace zv::dmx
