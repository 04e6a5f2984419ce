#pragma once
#include <string_view>

namespace zv::fs {

// Matches text against a pattern of literal characters, "*" (any run) and "?" (any one
// character), ignoring case. Iterative, so hostile patterns cannot blow the stack.
bool wildcardMatch(std::string_view pattern, std::string_view text);

}  // namespace zv::fs
