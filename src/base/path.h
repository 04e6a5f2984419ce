#pragma once
// Path text rules shared by every stage. Legacy tools built paths in fixed buffers of
// 260 characters; fitPath keeps that limit in one place. Both separators are accepted
// on input.

#include <cstddef>
#include <string>
#include <string_view>

namespace zv::path {

inline constexpr size_t kMaxPath = 260;

// The text cut to what a 260-character buffer holds (259 characters and the NUL).
std::string fitPath(std::string_view text);

constexpr bool isSeparator(char c) { return c == '/' || c == '\\'; }
bool isAbsolute(std::string_view path);  // "/x", "\\x" or "C:..."

// "a/b/c.mdl" -> "c.mdl"
std::string_view fileName(std::string_view path);
// "a/b/c.dx90.vtx" -> "c.dx90" (only the last extension goes)
std::string_view fileBase(std::string_view path);
// "a/b/c.mdl" -> "a/b" ; "c.mdl" -> ""
std::string_view parent(std::string_view path);
// "a/b/c.mdl" -> "a/b/c"; a dot in a folder name is not an extension.
std::string stripExtension(std::string_view path);
// stripExtension(path) + extension, within the 260-character limit.
std::string withExtension(std::string_view path, std::string_view extension);
// The extension without its dot, or "".
std::string_view extension(std::string_view path);

std::string toForwardSlashes(std::string_view path);
std::string toBackSlashes(std::string_view path);
// Collapses runs of separators ("a\\\\b//c" -> "a\\b/c"), keeping the first of each run.
std::string removeDoubleSlashes(std::string_view path);
// a + separator + b, without doubling a separator already present on either side.
std::string join(std::string_view a, std::string_view b, char separator = '\\');
// Removes "./" pieces and resolves "x/.." pairs; leading ".." stay. Keeps the separators given.
std::string normalize(std::string_view path);

}  // namespace zv::path
