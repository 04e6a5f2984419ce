#pragma once
// A read-only file read with positioned reads: no shared file position, so any number of
// threads may read through one open file at once. The platform's file calls for reading
// archives live here only.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/result.h"

namespace zv::fs {

class PositionedFile {
 public:
  // path: UTF-8. A folder or a missing file is an error naming it.
  static Result<std::shared_ptr<PositionedFile>> open(const std::string& path);
  ~PositionedFile();
  PositionedFile(const PositionedFile&) = delete;
  PositionedFile& operator=(const PositionedFile&) = delete;

  // The size when the file was opened; offsets are checked against it before reading.
  uint64_t size() const { return size_; }

  // Fills out from offset; false when the file ends first or the read fails.
  bool readAt(uint64_t offset, uint8_t* out, size_t count) const;

 private:
  explicit PositionedFile(intptr_t handle) : handle_(handle) {}
  intptr_t handle_;  // a file descriptor, or a Windows file handle
  uint64_t size_ = 0;
};

}  // namespace zv::fs
