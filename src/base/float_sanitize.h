#pragma once
// The one repair of non-finite floats shared by every sanitising site (vertices,
// animation values): the value becomes 0 and the first repair of the run
// prints "mdl to dmx: zeroing out invalid vertices\n" (once per run: see warningOnce).

#include <cstdint>

#include "base/math.h"

namespace zv {

// True when the float's exponent bits are all set (infinity or NaN).
bool isInvalidFloat(float value);
// value, or 0 with the shared warning when it is invalid.
float sanitizeFloat(float value);
void SanitizeVector(Vector3& v);
// How many values have been repaired in this process.
uint64_t invalidFloatRepairs();
// Forgets the count of earlier repairs. For tests only; the warning is once per sink.
void resetInvalidFloatRepairsForTesting();

}  // namespace zv
