#pragma once
// A place content comes from: a folder on disk or a packed archive. Paths handed to a
// source are relative, "/"-separated and already normalised; lookups ignore case, as
// the legacy tools did on every platform.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"

namespace zv::fs {

struct DirEntry {
  std::string name;  // the entry's own name, as stored
  bool isDirectory = false;
};

class ContentSource {
 public:
  virtual ~ContentSource() = default;
  // For messages: the folder or archive path.
  virtual const std::string& location() const = 0;
  // The whole file, or an error when it is missing or cannot be read.
  virtual Result<std::vector<uint8_t>> read(std::string_view relative) const = 0;
  virtual bool isFile(std::string_view relative) const = 0;
  virtual bool isDirectory(std::string_view relative) const = 0;
  // The entries of a folder ("" for the top), sorted by name.
  virtual std::vector<DirEntry> list(std::string_view folder) const = 0;
  // A path that names the file from anywhere: absolute on disk, or "qpk:<archive>:<path>".
  virtual std::string fullPath(std::string_view relative) const = 0;
};

}  // namespace zv::fs
