#include "dmx/dm_buffer.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

namespace zv::dmx {

uint8_t* DmOutputBuffer::grow(size_t size) {
  if (error_ || size > limit_ - bytes_.size() || size > bytes_.max_size() - bytes_.size()) {
    error_ = true;
    return nullptr;
  }
  size_t old = bytes_.size();
  try {
    // Doubling keeps many small writes amortised constant.
    if (old + size > bytes_.capacity()) bytes_.reserve(std::max(old + size, bytes_.capacity() * 2));
    bytes_.resize(old + size);
  } catch (const std::bad_alloc&) {
    error_ = true;
    return nullptr;
  }
  return bytes_.data() + old;
}

void DmOutputBuffer::reserve(size_t size) {
  size = std::min(size, limit_ - std::min(limit_, bytes_.size()));
  try {
    bytes_.reserve(bytes_.size() + size);
  } catch (const std::exception&) {
    // The writes themselves will report a shortage.
  }
}

void DmOutputBuffer::put(const void* data, size_t size) {
  if (size == 0) return;
  if (uint8_t* out = grow(size)) std::memcpy(out, data, size);
}

void DmOutputBuffer::putI32(int32_t value) {
  uint8_t bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(static_cast<uint32_t>(value) >> (8 * i));
  put(bytes, 4);
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
