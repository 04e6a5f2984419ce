#pragma once
// Reading the binary encoding (both variants, version 9) back into an element tree. Files
// may come from anywhere, so every count is checked against the bytes left before anything
// is allocated, and every problem is an error naming its byte offset.

#include <memory>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "base/result.h"
#include "dmx/dm_element.h"

namespace zv::dmx {

struct DmHeader {
  std::string encoding;
  int encodingVersion = 0;
  std::string format;
  int formatVersion = 0;
  // Whether a zero byte followed the header line (writers put one there; some files lack it).
  bool nulAfterHeader = false;
  // Where the body starts in the file.
  size_t bodyOffset = 0;
};

struct DmDocument {
  DmHeader header;
  std::unique_ptr<DmElementTree> tree;
  // Element 0 of the file; nullptr when the file lists no elements.
  CDmElement* root = nullptr;
  // The prefix block's values as an element; the root also refers to it as
  // "$prefix_attribute$", which is how writers expect to find it.
  CDmElement* prefix = nullptr;
  // Every element in file order; indices are the file's element indices.
  std::vector<CDmElement*> elements;
  // Stand-ins for references to elements of other files, in the order first met.
  std::vector<CDmElement*> externals;
};

// The header line alone; also what tells a DMX file from other bytes.
Result<DmHeader> readDmxHeader(ByteView bytes);

Result<DmDocument> readDmx(ByteView bytes);

}  // namespace zv::dmx
