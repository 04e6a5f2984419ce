#pragma once
// Whole-file writes that never leave a half-written target: the bytes go to a temporary
// file in the target's folder, which is then renamed over the target.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

#include "base/result.h"

namespace zv::fs {

// beforeRename runs after the temporary file is complete and closed; it exists so tests
// can stop the process at the worst moment.
Status writeFileAtomic(const std::filesystem::path& target, std::span<const uint8_t> bytes,
                       const std::function<void()>& beforeRename = {});

}  // namespace zv::fs
