#pragma once
// The pieces of mesh extraction that do not need a loaded model: part naming, reading a
// strip group's triangles, and the turn from a Y-up into a Z-up frame.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/math.h"
#include "importer/tables.h"
#include "legacy/vtx.h"

namespace zv {

// "<model>_bg_<body part>[_sm<sub-model>][_lod<lod>]": model and body part by their file
// base in lower case; the sub-model index only when the body part has two or more; no
// LOD suffix for lod -1. Empty when the model name is.
std::string BuildPartName(std::string_view modelName, std::string_view bodyPartName, int32_t subModelCount,
                          int32_t subModelIndex, int32_t lod);

// The triangle corners of a strip group, as indices into its vertices: each strip's
// indices appended in turn, then every index triple counted from the start of the list
// (not of the strip) within the strip's index count has its first and third swapped.
// With one strip that reverses every triangle's winding.
std::vector<int32_t> stripGroupCorners(const legacy::StripGroup& group);

// B * A with A from the angles (90, 0, 0) and B from (0, 0, 90): takes +Y to +Z.
Matrix3x4 yUpToZUpMatrix();
// Every bone's model-space transform becomes m * transform; the parent-relative pose is
// recomputed from the new model-space transforms.
void transformSkeleton(std::vector<SkeletonBone>& bones, const Matrix3x4& m);
// Positions as points, normals and tangent directions as vectors; tangent signs stay.
void transformPart(MeshPart& part, const Matrix3x4& m);

}  // namespace zv
