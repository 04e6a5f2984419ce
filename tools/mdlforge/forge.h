#pragma once
// Builds the three files of a legacy model family from a Description, and says where the
// main records were put so that tests can patch single fields into corrupt variants.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "mdlforge/description.h"

namespace zv::mdlforge {

// Absolute file positions by name, e.g. "mesh[0][1][2]". Keys are listed in README.md.
class OffsetMap {
 public:
  void set(std::string key, size_t offset) { offsets_[std::move(key)] = offset; }
  bool has(std::string_view key) const { return offsets_.find(key) != offsets_.end(); }
  // The position of key; throws std::out_of_range naming the key when it was not placed.
  size_t at(std::string_view key) const;
  const std::map<std::string, size_t, std::less<>>& all() const { return offsets_; }

 private:
  std::map<std::string, size_t, std::less<>> offsets_;
};

// "name[i][j]..." as used by OffsetMap.
std::string placeKey(std::string_view name, std::initializer_list<size_t> indices = {});
std::string placeKey(std::string_view name, const std::vector<size_t>& indices);

struct Placement {
  OffsetMap mdl, qvd, vtx, ani;
};

struct ModelFiles {
  std::vector<uint8_t> mdl;
  std::optional<std::vector<uint8_t>> qvd;
  std::optional<std::vector<uint8_t>> vtx;
  std::optional<std::vector<uint8_t>> ani;  // only when an animation's tracks are in a block
  Placement where;
};

// Fails only for descriptions that cannot be written at all (a name too long for its
// fixed field, a stored vertex order naming a vertex that does not exist, ...).
Result<ModelFiles> build(const Description& description);

}  // namespace zv::mdlforge
