#pragma once
// CRC-32 with the reflected polynomial 0xEDB88320, the checksum packed archives store for
// every file. Incremental: feed pieces by passing the previous result back in.

#include <cstdint>
#include <span>

namespace zv {

uint32_t crc32(std::span<const uint8_t> bytes, uint32_t previous = 0);

}  // namespace zv
