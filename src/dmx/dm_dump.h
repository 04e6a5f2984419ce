#pragma once
// A DMX document as indented text, for people: the header, the prefix values, then the
// tree from the root. An element is printed in full where it is first met and as a
// back-reference "-> [index] Type "name"" afterwards; elements the root does not reach,
// or that sit deeper than the nesting limit, follow at the end.

#include <string>

#include "dmx/dm_reader.h"

namespace zv::dmx {

struct DmDumpOptions {
  // Longer arrays of values show their first items and their count.
  size_t maxArrayItems = 8;
  // Deeper elements are printed at the top level instead, which bounds the recursion.
  size_t maxDepth = 64;
};

std::string dumpDmx(const DmDocument& doc, const DmDumpOptions& options = {});

// One value as the dump prints it (numbers in the shortest form that reads back exactly).
std::string formatDmValue(const CDmAttribute& attribute, size_t maxArrayItems = 8);

}  // namespace zv::dmx
