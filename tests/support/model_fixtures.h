#pragma once
// Small legacy models for tests, described for the model builder. Each test starts from
// one of these and changes only what it is about.

#include <cstdint>
#include <string>
#include <vector>

#include "legacy/family.h"
#include "mdlforge/forge.h"

namespace zv::testing {

// A vertex at a position, weighted fully to bone 0, with uv = (x, y) / 10.
mdlforge::Vertex vertexAt(float x, float y, float z);

// A mesh of `triangles` separate triangles (3 vertices each) in one strip group with one
// strip, present at LOD 0 only.
mdlforge::Mesh triangleMesh(int32_t material, int triangles, float offset = 0);

// One bone "root", one texture "crate" in "models\\props\\", one body part "body" with
// one sub-model "crate" holding a mesh of two triangles.
mdlforge::Description crateModel();

// Builds the family; fails the test (throws) when the builder refuses.
mdlforge::ModelFiles buildFiles(const mdlforge::Description& description);

// The family as the loader takes it, with conventional file names.
legacy::FamilyFiles familyFiles(const mdlforge::ModelFiles& files, const std::string& base = "models/props/crate");

// Writes the family as <folder>/<base>.mdl, .qvd, .dx90.vtx (files the description has).
void writeFamily(const mdlforge::ModelFiles& files, const std::string& folder, const std::string& base);

}  // namespace zv::testing
