#pragma once
// Saving element trees. The binary encoding comes in two variants: "binary" writes each
// element's own id, "binary_seqids" numbers the ids in the order the writer meets them so
// that two saves of the same tree are byte-identical.
//
// Element order: the root is element 0, then every element of the root's file reachable
// from it, depth-first in attribute order (array items in order), each once. Elements of
// other files are not listed; references to them are written as id text. The root's
// element attribute "$prefix_attribute$" is not part of the root's attributes in the file:
// its element's attributes form the prefix block, and that element is listed only when
// something else reaches it. Under "binary_seqids" the listed elements are numbered 1..n in
// list order, and elements of other files continue the count where first referenced.

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "dmx/dm_buffer.h"
#include "dmx/dm_element.h"

namespace zv::dmx {

class IDmSerializer {
 public:
  virtual ~IDmSerializer() = default;
  virtual std::string_view encodingName() const = 0;
  virtual std::string_view description() const = 0;
  virtual int encodingVersion() const = 0;
  virtual bool isBinaryFormat() const = 0;
  // Writes the header line and the body of the tree under root. False when the buffer
  // is refused or reports an error.
  virtual bool save(const CDmElement& root, DmOutputBuffer& buffer, std::string_view formatName,
                    int formatVersion) const = 0;
};

class CDmSerializerBinary final : public IDmSerializer {
 public:
  explicit CDmSerializerBinary(bool sequentialIds) : sequential_ids_(sequentialIds) {}
  std::string_view encodingName() const override;
  std::string_view description() const override;
  int encodingVersion() const override;
  bool isBinaryFormat() const override { return true; }
  bool save(const CDmElement& root, DmOutputBuffer& buffer, std::string_view formatName,
            int formatVersion) const override;

 private:
  bool sequential_ids_;
};

// The serializer of that encoding name, or nullptr.
const IDmSerializer* findSerializer(std::string_view encoding);

// Saves with the serializer of that encoding; an unknown name is reported and fails.
bool serializeDmx(const CDmElement& root, DmOutputBuffer& buffer, std::string_view encoding,
                  std::string_view formatName, int formatVersion);

// The file bytes of the tree, or nothing when the save failed (the reason was logged).
std::optional<std::vector<uint8_t>> saveDmx(const CDmElement& root, std::string_view encoding,
                                            std::string_view formatName, int formatVersion);

// What the converter writes: "binary_seqids", format "dmx" version 22.
inline constexpr std::string_view kConverterEncoding = "binary_seqids";
inline constexpr std::string_view kConverterFormat = "dmx";
inline constexpr int kConverterFormatVersion = 22;

}  // namespace zv::dmx
