#pragma once
// Helpers shared by the file-system and archive tests.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "fs/content_source.h"

namespace zv::fs {

using Names = std::vector<std::string>;

inline std::vector<uint8_t> bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

// The bytes as text, or the error in angle brackets, so a failed read shows its reason.
inline std::string asText(const Result<std::vector<uint8_t>>& bytes) {
  return bytes ? std::string(bytes->begin(), bytes->end()) : "<" + bytes.message() + ">";
}

// Entry names, folders marked with a trailing "/".
inline Names entryNames(const std::vector<DirEntry>& entries) {
  Names out;
  for (const DirEntry& e : entries) out.push_back(e.name + (e.isDirectory ? "/" : ""));
  return out;
}

}  // namespace zv::fs
