#pragma once
// Flexes: named weight slots (descriptors) whose weights controllers set through rules
// (small postfix programs), the controllers' grouping for animators, and per mesh the
// vertex deltas that a descriptor applies inside a weight window. Every piece is
// optional: a broken one is left out with a note, and the model converts without it.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/byte_view.h"
#include "base/math.h"

namespace zv::legacy {

// Rule op codes, as the files number them.
enum FlexOpCode : int32_t {
  kFlexConst = 1,
  kFlexFetchController = 2,
  kFlexFetchDescriptor = 3,
  kFlexAdd = 4,
  kFlexSub = 5,
  kFlexMul = 6,
  kFlexDiv = 7,
  kFlexNeg = 8,
  kFlexExp = 9,
  kFlexOpen = 10,
  kFlexClose = 11,
  kFlexComma = 12,
  kFlexMax = 13,
  kFlexMin = 14,
  kFlexTwoWay0 = 15,
  kFlexTwoWay1 = 16,
  kFlexNWay = 17,
  kFlexCombo = 18,
  kFlexDominate = 19,
  kFlexLowerEyelid = 20,
  kFlexUpperEyelid = 21,
};

struct FlexOp {
  int32_t code = 0;
  float value = 0;    // the operand of a constant
  int32_t index = 0;  // the operand of every other op
};

// A postfix program whose result is the weight of its target descriptor. Controller and
// descriptor operands have been checked against their tables.
struct FlexRule {
  int32_t target = 0;
  std::vector<FlexOp> ops;
};

struct FlexController {
  std::string type;  // its group ("mouth", "eyelid", "head" ...)
  std::string name;
  float min = 0, max = 1;
};

// How animators see one or two controllers: a stereo entry joins a left and a right one.
struct FlexControllerUi {
  std::string name;
  // Controller indices: the controller (the left one when stereo), the right one, and the
  // value controller of n-way and eyelid remaps; -1 where the entry names none.
  std::array<int32_t, 3> controllers{-1, -1, -1};
  uint8_t remap = 0;  // 0 pass-through, 1 two-way, 2 n-way, 3 eyelid
  bool stereo = false;
};

struct FlexTables {
  std::vector<std::string> descriptors;
  std::vector<FlexController> controllers;
  std::vector<FlexRule> rules;
  std::vector<FlexControllerUi> controllerUis;
};

// The value of every 16-bit float as a delta: the compiler writes NaN deltas as 0, and any
// other non-finite half is damage, read as 0 too. A table, as faces decode millions.
const float* deltaHalfValues();

// One moved vertex of a mesh flex, its halves decoded (a non-finite half reads as 0, as
// the compiler writes NaN).
struct VertexDelta {
  uint16_t vertex = 0;  // within the mesh, below its vertex count
  uint8_t side = 0;     // stereo split: the partner's share times 255
  Vector3 position;
  Vector3 normal;
  float wrinkle = 0;
};

// The vertex animation records of one mesh flex, as a checked view of the model file's
// bytes: a face holds hundreds of thousands of them, so they are decoded where they are
// used, once, rather than copied into a table first. The 16-byte form is vertex, side,
// position and normal halves; the 18-byte form adds a wrinkle half. Records naming a
// vertex at or past the mesh's vertex count are passed over. The view lives as long as
// the model file it was read from (which is not copyable, so the bytes never move).
class VertexAnimations {
 public:
  static constexpr size_t kPlainSize = 16;
  static constexpr size_t kWrinkleSize = 18;

  VertexAnimations() = default;
  // records: the whole table, already checked to lie in the file; usable: how many of its
  // records name a vertex below vertexLimit.
  VertexAnimations(const uint8_t* records, size_t count, bool wrinkle, int32_t vertexLimit, size_t usable)
      : records_(records), count_(count), wrinkle_(wrinkle), vertexLimit_(vertexLimit), usable_(usable) {}

  size_t size() const { return usable_; }
  bool empty() const { return usable_ == 0; }

  // Calls visit(const VertexDelta&) for each usable record, in file order.
  template <class Visit>
  void forEach(Visit&& visit) const {
    const float* halves = deltaHalfValues();
    const size_t stride = wrinkle_ ? kWrinkleSize : kPlainSize;
    const uint8_t* record = records_;
    for (size_t k = 0; k < count_; ++k, record += stride) {
      if (!namesVertexBelow(record, vertexLimit_)) continue;
      visit(VertexDelta{ByteView::load<uint16_t>(record), record[3], deltaHalves(halves, record + 4),
                        deltaHalves(halves, record + 10),
                        wrinkle_ ? halves[ByteView::load<uint16_t>(record + 16)] : 0.0f});
    }
  }

  // Whether a record names a vertex inside the mesh.
  static bool namesVertexBelow(const uint8_t* record, int32_t vertexLimit) {
    return int32_t(ByteView::load<uint16_t>(record)) < vertexLimit;
  }

 private:
  static Vector3 deltaHalves(const float* halves, const uint8_t* at) {
    return {halves[ByteView::load<uint16_t>(at)], halves[ByteView::load<uint16_t>(at + 2)],
            halves[ByteView::load<uint16_t>(at + 4)]};
  }

  const uint8_t* records_ = nullptr;
  size_t count_ = 0;
  bool wrinkle_ = false;
  int32_t vertexLimit_ = 0;
  size_t usable_ = 0;
};

// The deltas one descriptor applies to one mesh while its weight lies in a window: 0 up
// to window[0], rising to 1 at window[1], 1 up to window[2], falling to 0 at window[3].
struct MeshFlex {
  int32_t descriptor = 0;  // checked against the descriptor table
  std::array<float, 4> window{};
  int32_t partner = -1;  // the other side's descriptor of a stereo flex; -1 for none
  bool wrinkle = false;  // the 18-byte record form
  VertexAnimations deltas;
  size_t recordOffset = 0;
};

}  // namespace zv::legacy
