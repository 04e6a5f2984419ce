#pragma once
// How the model document names files: paths relative to the base folder (the output
// root), and material references in the one spelling the document uses.

#include <string>
#include <string_view>

namespace zv {

// path with "/" separators, relative to baseFolder: when path starts with the base folder
// (ignoring case, at a folder boundary) that text and the "/" after it are removed.
// A path outside the base folder is returned whole, only with its separators turned.
std::string relativeToBaseFolder(std::string_view path, std::string_view baseFolder);

// A material path as the document references it: lower case; spaces, "(", ")", "'" and
// "!" made "_"; in a relative path every other character outside letters, digits, "-",
// ".", "_" and the separators made "_"; runs of separators collapsed and made "/".
std::string normalizeMaterialReference(std::string_view path);

}  // namespace zv
