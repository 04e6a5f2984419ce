#pragma once
// The external animation block file (.ani) of a model: a header with its own id, then
// blocks of animation data that the model's block table locates. Only the id is checked
// in the header; each block of the table is checked against the file's real size, and a
// block that does not fit is unusable (noted), so decoding never reads past it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "base/result.h"
#include "legacy/mdl.h"

namespace zv::legacy {

inline constexpr int32_t kAnimBlockFileId = 0x47414449;  // "IDAG"

class AnimBlockFile {
 public:
  // Fails when the file is too short for an id or carries another one.
  static Result<AnimBlockFile> parse(std::string fileName, std::vector<uint8_t> bytes,
                                     const std::vector<AnimBlock>& table);

  const std::string& fileName() const { return fileName_; }
  // The bytes of block n (n > 0) of the table; nothing when the table has no usable block n.
  std::optional<ByteView> block(int32_t n) const;
  // Blocks of the table that do not fit in the file, one message each.
  const std::vector<std::string>& notes() const { return notes_; }

 private:
  std::string fileName_;
  std::vector<uint8_t> bytes_;
  std::vector<std::optional<AnimBlock>> blocks_;  // by block number; entry 0 is never used
  std::vector<std::string> notes_;
};

}  // namespace zv::legacy
