#pragma once
// The two name conversions every writer shares, so that files agree with each other.

#include <string>
#include <string_view>

namespace zv {

// Node names made from legacy text: keeps "0"-"9", "@", "A"-"Z", "_", "a"-"z"; every
// other character becomes "_".
std::string SanitizeNodeName(std::string_view name);

// Bone names as every file names them (mesh, physics and animation joints, every bone
// reference in the model document): the legacy name, with each character outside
// printable ASCII, each double quote and each back-slash made "_".
std::string ConvertBoneName(std::string_view name);

}  // namespace zv
