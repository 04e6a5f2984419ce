#pragma once
// Trees shared by the element, serializer, reader and dump tests.

#include <cstdint>
#include <vector>

#include "dmx/dm_element.h"

namespace zv::dmx::testing {

// A root carrying one attribute of every scalar and array type (arrays of two or three
// items plus one empty array per type), a prefix element of numeric values, a child
// shared by two references, a null reference and a reference into another tree.
struct EveryTypeTree {
  EveryTypeTree();
  DmElementTree tree{1};
  DmElementTree other{2};
  CDmElement* root;
  CDmElement* child;
  CDmElement* prefix;
  CDmElement* foreign;
};

// The bytes of a save that must succeed.
std::vector<uint8_t> mustSave(const CDmElement& root, std::string_view encoding = "binary_seqids");

}  // namespace zv::dmx::testing
