#pragma once
// The packed numbers of legacy animation data: half floats and the three quaternion
// packings. Each is decoded exactly as the data was written, also where the result is
// not a unit quaternion (the 48-bit forms do not clamp their computed component).

#include <cstdint>

#include "base/math.h"

namespace zv::anim {

// Raw positions are half floats, decoded as everywhere else.
using zv::halfToFloat;

// x, y from a and b over 15 bits and z over 14 bits of c; w computed, its sign in bit 15
// of c. Not clamped: stored components beyond unit length give a NaN w.
Quaternion unpackQuaternion48(uint16_t a, uint16_t b, uint16_t c);

// Three stored components and an omitted one: the top bits of a and b name the first
// stored component (x = 0 .. w = 3), the next two follow cyclically, and the omitted one
// is computed, its sign in bit 15 of c. Non-finite components become 0 (shared warning).
Quaternion unpackQuaternion48Omitted(uint16_t a, uint16_t b, uint16_t c);

// x, y, z over 21 bits each; w computed from a radicand clamped at 0, its sign in bit 63.
Quaternion unpackQuaternion64(uint64_t q);

}  // namespace zv::anim
