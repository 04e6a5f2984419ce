#pragma once
// How a legacy material name becomes a relative material path of the new kind.

#include <string>
#include <string_view>

namespace zv {

// Drive-letter ("c:\...") and network ("\\server\...") names are used as found. A name
// with a single leading separator is relative: the separator is dropped before joining.
bool isAbsoluteTextureName(std::string_view name);

// The legacy material file that a texture name stands for under one texture directory:
// "materials\<directory>\<name>.qmt" with one leading separator dropped from each
// piece, doubled separators removed and everything in lower case.
std::string materialCandidatePath(std::string_view directory, std::string_view name);

}  // namespace zv
