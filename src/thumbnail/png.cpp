// PNG bytes through the single-header writer Debian ships, with zlib's deflate in place of
// the writer's own: its output depends only on the pixels, so equal pictures give equal files.
#include <zlib.h>

#include <cstdlib>

#include "thumbnail/thumbnail.h"

namespace {

// zlib's fastest level on unfiltered rows: the pictures are transparent runs and flat
// faces, which this packs smaller than the writer's deflate with its row filters, in a
// fifth of the time. Every parameter is pinned (none left to zlib's defaults), and a test
// pins the bytes of a known picture, so a zlib that compressed differently is caught
// rather than giving the Linux and Windows tools different files.
constexpr int kLevel = 1;
constexpr int kWindowBits = 15;
constexpr int kMemoryLevel = 8;

unsigned char* deflateRows(unsigned char* data, int size, int* outSize, int /*writerLevel*/) {
  z_stream stream{};
  if (deflateInit2(&stream, kLevel, Z_DEFLATED, kWindowBits, kMemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK)
    return nullptr;
  const uLong capacity = deflateBound(&stream, uLong(size));
  // The writer frees this with free().
  auto* out = static_cast<unsigned char*>(std::malloc(capacity));
  bool done = false;
  if (out) {
    stream.next_in = data;
    stream.avail_in = uInt(size);
    stream.next_out = out;
    stream.avail_out = uInt(capacity);
    done = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  }
  *outSize = int(stream.total_out);
  deflateEnd(&stream);
  if (!done) {
    std::free(out);
    return nullptr;
  }
  return out;
}

}  // namespace

#define STBIW_ZLIB_COMPRESS deflateRows
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb_image_write.h>

namespace zv::thumbnail {
namespace {

// No row filter (filter 0): the faces are flat, so rows repeat as they are, and choosing
// a filter per row cost more than all the deflating. Set once, before any thread runs.
const bool kEncoderTuned = (stbi_write_force_png_filter = 0, true);

void append(void* context, void* data, int size) {
  auto* out = static_cast<std::vector<uint8_t>*>(context);
  const auto* bytes = static_cast<const uint8_t*>(data);
  out->insert(out->end(), bytes, bytes + size);
}

}  // namespace

std::vector<uint8_t> encodePng(const Image& image) {
  std::vector<uint8_t> out;
  if (!kEncoderTuned) return out;
  if (image.width <= 0 || image.height <= 0 || image.rgba.size() != size_t(image.width) * size_t(image.height) * 4)
    return out;
  stbi_write_png_to_func(append, &out, image.width, image.height, 4, image.rgba.data(), image.width * 4);
  return out;
}

}  // namespace zv::thumbnail
