#include "legacy/ani.h"

#include "base/strings.h"

namespace zv::legacy {

Result<AnimBlockFile> AnimBlockFile::parse(std::string fileName, std::vector<uint8_t> bytes,
                                           const std::vector<AnimBlock>& table) {
  auto id = ByteView(bytes).read<int32_t>(0);
  if (!id || *id != kAnimBlockFileId) {
    return Error{format("%s: not an animation block file (id 0x%08x, expected 0x%08x)", fileName.c_str(),
                        static_cast<uint32_t>(id.value_or(0)), static_cast<uint32_t>(kAnimBlockFileId))};
  }
  AnimBlockFile file;
  file.fileName_ = std::move(fileName);
  file.bytes_ = std::move(bytes);
  // Block 0 stands for "inside the model" and is never looked up here.
  file.blocks_.resize(table.size());
  for (size_t n = 1; n < table.size(); ++n) {
    const AnimBlock& b = table[n];
    if (b.start < 0 || b.end < b.start || size_t(b.end) > file.bytes_.size()) {
      file.notes_.push_back(format("%s: animation block %zu (%d to %d) lies outside the file (%zu bytes)",
                                   file.fileName_.c_str(), n, b.start, b.end, file.bytes_.size()));
      continue;
    }
    file.blocks_[n] = b;
  }
  return file;
}

std::optional<ByteView> AnimBlockFile::block(int32_t n) const {
  if (n <= 0 || size_t(n) >= blocks_.size() || !blocks_[size_t(n)]) return std::nullopt;
  const AnimBlock& b = *blocks_[size_t(n)];
  return ByteView(bytes_.data() + b.start, size_t(b.end - b.start));
}

}  // namespace zv::legacy
