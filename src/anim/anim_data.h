#pragma once
// The bytes one piece of animation data may use, read so that nothing leaves them. Legacy
// animation data is offset-linked (record chains, value runs, packed streams), so every
// read names what it wanted; the first read that does not fit becomes the animation's
// fault (file, animation, block, offset) and gives 0, and decoding goes on safely.

#include <cstdint>
#include <string>

#include "base/byte_view.h"
#include "base/strings.h"

namespace zv::anim {

// The first problem met while decoding an animation; later ones are only counted, so that
// a decoder can tell whether the piece it decodes now went wrong.
class AnimFault {
 public:
  void set(std::string message) {
    if (message_.empty()) message_ = std::move(message);
    ++count_;
  }
  bool any() const { return count_ != 0; }
  size_t count() const { return count_; }
  const std::string& message() const { return message_; }

 private:
  std::string message_;
  size_t count_ = 0;
};

// One block of data: the model file (block 0) or a block of the .ani file.
class AnimData {
 public:
  // where: "<file>: animation "<name>" block <n>", the start of every fault message.
  AnimData(ByteView bytes, std::string where, AnimFault& fault)
      : bytes_(bytes), where_(std::move(where)), fault_(&fault) {}

  size_t size() const { return bytes_.size(); }
  bool contains(size_t position, size_t length) const { return bytes_.contains(position, length); }

  template <class T>
  T read(size_t position, const char* what) const {
    auto value = bytes_.read<T>(position);
    if (!value) fail(position, what, "leaves the data");
    return value.value_or(T{});
  }

  // Records a fault at a position of this block.
  void fail(size_t position, const char* what, const char* problem) const {
    fault_->set(format("%s: %s at offset %zu %s", where_.c_str(), what, position, problem));
  }
  AnimFault& fault() const { return *fault_; }

 private:
  ByteView bytes_;
  std::string where_;
  AnimFault* fault_;
};

}  // namespace zv::anim
