#pragma once
// Animation tracks given by value, encoded in the legacy forms: the packed numbers, the
// run-length chain of bone records and the frame-packed streams, and how an animation is
// split into sections.

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "base/math.h"
#include "base/result.h"
#include "mdlforge/description.h"

namespace zv::mdlforge {

// Each packing rounds to the nearest value it can hold and clamps to its range.
uint16_t packHalf(float value);
std::array<uint16_t, 3> packQuaternion48(const Quaternion& q);
// The largest component is the one left out (it is computed back from the others).
std::array<uint16_t, 3> packQuaternion48Omitted(const Quaternion& q);
uint64_t packQuaternion64(const Quaternion& q);

// Value channels packed into runs of at most 255 frames: each run holds its values, then
// repeats its last value for the frames that keep it.
std::vector<ValueRun> packRuns(const std::vector<int16_t>& values);

// The data of frames first..last (inclusive) of the tracks, frame `first` being its local
// frame 0. Fails when a record grows beyond what its 16-bit offsets reach.
Result<std::vector<uint8_t>> encodeTracks(const AnimationTracks& tracks, int32_t first, int32_t last);

// The frames of each section of an animation: frames / perSection + 2 sections; section k
// runs from k * perSection to the next section's first frame (clamped to the last frame),
// the final one holds only the last frame.
std::vector<std::pair<int32_t, int32_t>> sectionFrames(int32_t frames, int32_t perSection);

}  // namespace zv::mdlforge
