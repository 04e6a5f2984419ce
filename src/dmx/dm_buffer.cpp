#include "dmx/dm_buffer.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace zv::dmx {

bool DmOutputBuffer::makeRoom(size_t wanted) {
  if (wanted <= capacity_) return true;
  // Doubling keeps many small writes amortised constant.
  size_t room = std::max(wanted, capacity_ > limit_ / 2 ? limit_ : capacity_ * 2);
  std::unique_ptr<uint8_t[]> bigger(new (std::nothrow) uint8_t[room]);
  if (!bigger) return false;
  if (size_ != 0) std::memcpy(bigger.get(), data_.get(), size_);
  data_ = std::move(bigger);
  capacity_ = room;
  return true;
}

uint8_t* DmOutputBuffer::grow(size_t size) {
  if (error_ || size > limit_ - size_ || !makeRoom(size_ + size)) {
    error_ = true;
    return nullptr;
  }
  uint8_t* out = data_.get() + size_;
  size_ += size;
  return out;
}

void DmOutputBuffer::reserve(size_t size) {
  // Only a hint: a shortage is reported by the writes themselves.
  (void)makeRoom(size_ + std::min(size, limit_ - size_));
}

std::vector<uint8_t> DmOutputBuffer::take() {
  std::vector<uint8_t> bytes(data_.get(), data_.get() + size_);
  clear();
  return bytes;
}

void DmOutputBuffer::clear() {
  size_ = 0;
  error_ = false;
}

void DmOutputBuffer::release() {
  clear();
  data_.reset();
  capacity_ = 0;
}

void DmOutputBuffer::putSlow(const void* data, size_t size) {
  if (size == 0) return;
  if (uint8_t* out = grow(size)) std::memcpy(out, data, size);
}

void DmOutputBuffer::putCString(std::string_view text) {
  size_t nul = text.find('\0');
  if (nul != std::string_view::npos) text = text.substr(0, nul);
  uint8_t* out = grow(text.size() + 1);
  if (!out) return;
  std::memcpy(out, text.data(), text.size());
  out[text.size()] = 0;
}

}  // namespace zv::dmx
