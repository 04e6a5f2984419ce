#include "base/float_sanitize.h"

#include <atomic>
#include <cstring>

#include "base/log.h"

namespace zv {
namespace {
std::atomic<uint64_t> gRepairs{0};
}

bool isInvalidFloat(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return (bits & 0x7F800000u) == 0x7F800000u;
}

float sanitizeFloat(float value) {
  if (!isInvalidFloat(value)) return value;
  gRepairs.fetch_add(1, std::memory_order_relaxed);
  // Once per run: the run's sink lets the first through, also when models convert in
  // parallel and their messages are printed in input order afterwards.
  warningOnce("invalid floats", "mdl to dmx: zeroing out invalid vertices\n");
  return 0.0f;
}

void SanitizeVector(Vector3& v) {
  v.x = sanitizeFloat(v.x);
  v.y = sanitizeFloat(v.y);
  v.z = sanitizeFloat(v.z);
}

uint64_t invalidFloatRepairs() { return gRepairs.load(std::memory_order_relaxed); }
void resetInvalidFloatRepairsForTesting() { gRepairs.store(0, std::memory_order_relaxed); }

}  // namespace zv
