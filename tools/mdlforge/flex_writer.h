#pragma once
// The flex records of the model header file: the header's descriptor, controller, rule
// and controller UI tables, and each mesh's flex records with their vertex animations.

#include <cstddef>

#include "mdlforge/byte_writer.h"
#include "mdlforge/description.h"
#include "mdlforge/forge.h"

namespace zv::mdlforge {

class FlexWriter {
 public:
  FlexWriter(const Description& d, ByteWriter& w, StringPool& pool, OffsetMap& where)
      : d_(d), w_(w), pool_(pool), where_(where) {}

  // The header tables; UI entries point at controller records, so controllers come first.
  void writeTables();
  // The flex records of mesh k of sub-model m of body part b, whose record is at meshStart.
  void writeMeshFlexes(size_t b, size_t m, size_t k, size_t meshStart);

 private:
  size_t beginTable(size_t field, size_t count, const char* key);
  void writeRules();
  void writeControllerUis(size_t controllers);
  void writeVertexAnims(const MeshFlex& flex);

  const Description& d_;
  ByteWriter& w_;
  StringPool& pool_;
  OffsetMap& where_;
};

}  // namespace zv::mdlforge
