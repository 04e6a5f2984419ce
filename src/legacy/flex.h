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

// One moved vertex of a mesh flex, its halves decoded (a non-finite half reads as 0, as
// the compiler writes NaN).
struct VertexDelta {
  uint16_t vertex = 0;  // within the mesh, below its vertex count
  uint8_t side = 0;     // stereo split: the partner's share times 255
  Vector3 position;
  Vector3 normal;
  float wrinkle = 0;
};

// The deltas one descriptor applies to one mesh while its weight lies in a window: 0 up
// to window[0], rising to 1 at window[1], 1 up to window[2], falling to 0 at window[3].
struct MeshFlex {
  int32_t descriptor = 0;  // checked against the descriptor table
  std::array<float, 4> window{};
  int32_t partner = -1;  // the other side's descriptor of a stereo flex; -1 for none
  bool wrinkle = false;  // the 18-byte record form
  std::vector<VertexDelta> deltas;
  size_t recordOffset = 0;
};

}  // namespace zv::legacy
