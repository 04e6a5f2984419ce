#pragma once
// The bytes one piece of animation data may use, read so that nothing leaves them. Legacy
// animation data is offset-linked (record chains, value runs, packed streams), so every
// read names what it wanted; the first read that does not fit becomes the animation's
// fault (file, animation, block, offset) and gives 0, and decoding goes on safely.

#include <cstdint>
#include <string>
#include <type_traits>

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
  // The message is made only for the first fault: a block that does not read is met
  // again at every frame.
  template <class MakeMessage>
    requires std::is_invocable_r_v<std::string, MakeMessage>
  void set(MakeMessage&& makeMessage) {
    if (message_.empty()) message_ = makeMessage();
    ++count_;
  }
  bool any() const { return count_ != 0; }
  size_t count() const { return count_; }
  const std::string& message() const { return message_; }

 private:
  std::string message_;
  size_t count_ = 0;
};

// Where a block of data is, for fault messages: "<file>: animation "<name>" block <n>".
// Kept as references and made text only when a fault is met, since a block is located
// for every frame decoded.
struct AnimPlace {
  const std::string* file;
  const std::string* animation;
  int32_t block;
  std::string text() const {
    return format("%s: animation \"%s\" block %d", file->c_str(), animation->c_str(), block);
  }
};

// One block of data: the model file (block 0) or a block of the .ani file.
class AnimData {
 public:
  AnimData(ByteView bytes, AnimPlace where, AnimFault& fault) : bytes_(bytes), where_(where), fault_(&fault) {}

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
    fault_->set([&] { return format("%s: %s at offset %zu %s", where_.text().c_str(), what, position, problem); });
  }
  AnimFault& fault() const { return *fault_; }

 private:
  ByteView bytes_;
  AnimPlace where_;
  AnimFault* fault_;
};

}  // namespace zv::anim
