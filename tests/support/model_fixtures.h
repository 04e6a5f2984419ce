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

// crateModel() with a face on its mesh of 6 vertices: descriptors smile_r, smile_l, blink,
// mid (read by a rule, no vertex data) and pucker; controllers smile_r, smile_l, blink,
// head_turn (-30..30, drives nothing); rules smile_r = smile_r, smile_l = smile_l,
// mid = 1 - blink, blink = blink * mid, pucker = smile_r; UI entries "smile" (stereo over
// smile_r and smile_l), "blink", "head_turn". Mesh flexes: smile_r (stereo, partner
// smile_l) moves vertices 0, 1, 2 up by 0.25 with sides 0, 255, 128; blink lowers vertices
// 3, 4 in window (-11, -10, -0.5, 0) and raises them in (0, 0.5, 10, 11); pucker (wrinkle
// form) moves vertex 5 by (0, -0.5, 0) with wrinkle 0.75.
mdlforge::Description faceModel();

// Builds the family; fails the test (throws) when the builder refuses.
mdlforge::ModelFiles buildFiles(const mdlforge::Description& description);

// The family as the loader takes it, with conventional file names.
legacy::FamilyFiles familyFiles(const mdlforge::ModelFiles& files, const std::string& base = "models/props/crate");

// Writes the family as <folder>/<base>.mdl, .qvd, .dx90.vtx (files the description has).
void writeFamily(const mdlforge::ModelFiles& files, const std::string& folder, const std::string& base);

}  // namespace zv::testing
