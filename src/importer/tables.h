#pragma once
// The tables the converter builds for one model. Each stage reads what earlier stages
// left here and adds its own; the converter clears them between models.

#include <array>
#include <optional>
#include <utility>
#include <cstdint>
#include <string>
#include <vector>

#include "base/math.h"
#include "kv/keyvalues.h"
#include "kv/kv3.h"
#include "legacy/mdl.h"

namespace zv {

// A bone of the bind pose, in legacy bone order. With -YupToZup the mesh stage turns
// these into the Z-up frame; every later writer reads them from here.
struct SkeletonBone {
  std::string name;  // as the legacy file has it
  int32_t parent = -1;
  Vector3 position;        // relative to the parent
  Quaternion orientation;  // relative to the parent
  Matrix3x4 modelTransform;
};

// One material slot per texture of the model: a relative path of the new kind, or empty
// while unresolved.
struct MaterialSlots {
  std::vector<std::string> paths;
  std::vector<uint8_t> resolved;
  int resolvedCount = 0;
  // What mesh files name each slot's faces: its path, or for a slot left unresolved the
  // path it would have had under the model's first texture directory. Importers drop a
  // mesh whose material has no name; the slot itself stays empty.
  std::vector<std::string> meshNames;
};

struct GatheredVertex {
  Vector3 position;
  Vector3 normal;
  Vector4 tangent;  // x, y, z and the handedness sign
  Vector2 texcoord0;
  Vector2 texcoord1;
  std::array<float, 4> weights{};
  std::array<int32_t, 4> bones{};
};

// Triangle corners of one strip group, as indices into the part's vertices.
struct FaceSet {
  int32_t material = 0;  // material slot
  std::vector<int32_t> indices;
};

// One morph target of a part: the deltas of one flex descriptor inside one weight window,
// merged over the part's meshes. Each field lists only its non-zero deltas, by the part's
// vertex number; a vertex appears at most once per field.
// The part file's writer takes the arrays.
struct MorphTarget {
  std::string name;  // unique within the part
  int32_t descriptor = 0;
  std::array<float, 4> window{};
  bool stereo = false;
  bool wrinkle = false;
  std::vector<int32_t> positionIndices;
  std::vector<Vector3> positionDeltas;
  std::vector<int32_t> normalIndices;
  std::vector<Vector3> normalDeltas;
  std::vector<int32_t> wrinkleIndices;
  std::vector<float> wrinkleDeltas;
};

// The geometry of one body part, sub-model and LOD.
struct MeshPart {
  std::string name;
  int32_t lod = 0;
  int32_t texcoordSets = 1;
  std::vector<GatheredVertex> vertices;
  std::vector<FaceSet> faceSets;
  std::vector<MorphTarget> morphTargets;
  // Per vertex, the left side's share of stereo targets; empty when no target is stereo.
  std::vector<float> balance;
};

// A control animators move: one legacy controller, or a stereo pair as one control.
struct FlexControl {
  std::string name;
  std::vector<int32_t> controllers;  // legacy controller indices
  bool stereo = false;
  bool eyelid = false;
  float min = 0, max = 1;  // the (left) controller's range
};

// A legacy rule the converter understood, as an infix expression.
struct FlexRuleExpression {
  int32_t descriptor = 0;  // the weight it computes
  std::string name;        // the descriptor's name in expressions
  std::string expression;
  std::vector<int32_t> controllers;  // what it reads, sorted, each once
  std::vector<int32_t> descriptors;
};

// What every part file with morph targets shares: names in expressions, controls, rules.
struct FlexModel {
  std::vector<std::string> descriptorNames;  // safe and unique within the model
  std::vector<std::string> controllerNames;
  std::vector<FlexControl> controls;
  std::vector<FlexRuleExpression> rules;  // in legacy rule order
  // Per descriptor, the controllers its weight depends on through the rules: bit c of
  // word c / 64 for controller c.
  std::vector<std::vector<uint64_t>> descriptorControllers;
};

// What the model document needs of the mesh parts, per legacy body part.
struct BodyGroupMesh {
  std::string name;
  float switchThreshold = 0;
};

struct BodyGroupEntry {
  int32_t choice = 0;  // sub-model index
  int32_t lod = 0;
  std::string meshName;  // base name of the part's mesh file
  // Empty for a sub-model that has no geometry (an empty body group choice).
  std::vector<BodyGroupMesh> meshes;
};

struct BodyGroup {
  std::string name;
  std::vector<BodyGroupEntry> entries;  // one per sub-model and LOD, sub-model by sub-model
};

// One animation to export. Its frames are decoded when its file is written, so memory
// does not grow with the number of animations; the record says where to decode from.
struct AnimExportRecord {
  std::string outputFolder;
  std::string name;      // unique, lower case
  std::string fileName;  // name with "@" made "_", then ".dmx"
  float frameRate = 0;
  int32_t frameCount = 0;
  bool looping = false;
  bool allZeros = false;  // flag 0x0020
  bool hidden = false;    // flag 0x0400
  bool delta = false;
  bool world = false;     // flag 0x4000
  std::vector<legacy::Movement> movements;
  size_t sourceModel = 0;      // 0: the converted model; n: the n-th included model
  size_t sourceAnimation = 0;  // the animation's index in that model
};

// An event of a sequence, by name, at a cycle of the sequence (0 to 1).
struct SequenceEvent {
  std::string name;
  float cycle = 0;
  std::string options;
};

// A sequence layered over another one, over a range of the outer sequence's cycle (or of
// a pose parameter's values).
struct SequenceLayer {
  int32_t sequence = -1;     // the layered sequence record; -1 when it does not exist
  std::string sequenceName;  // its name, or the legacy index it named when there is none
  std::string poseParam;  // for layers driven by a pose parameter
  int32_t flags = 0;
  float start = 0, peak = 0, tail = 0, end = 0;
};

// One sequence to write into the model document.
struct SequenceRecord {
  std::string name;
  // A broken legacy record keeps its place (layers name sequences by index) but is written
  // nowhere; it was reported when the model loaded.
  bool usable = true;
  std::string activity;
  int32_t activityWeight = 0;
  int32_t flags = 0;
  std::array<int32_t, 2> gridSize{0, 0};  // columns, rows; 0 x 0 without animation
  std::vector<int32_t> animations;        // animation records, row by row; -1 for one not exported
  std::array<std::string, 2> blendParams;  // pose parameter names of the grid's axes
  float fadeIn = 0, fadeOut = 0;
  std::vector<SequenceEvent> events;
  std::vector<SequenceLayer> layers;
  std::string weightList;  // the weight list it plays with
  Kv3Value keyValues;      // its key-value text as an object; null without one
  std::vector<std::pair<std::string, float>> animTags;  // name and cycle
};

// Per-bone weights, one per bone of the skeleton in bone order.
struct WeightList {
  std::string name;
  std::vector<float> weights;
};

// One convex piece of a physics solid, in model space (its bone's bind pose applied).
struct PhysicsPiece {
  int32_t bone = -1;  // the bone it moves with; -1 for none
  std::vector<Vector3> points;
  std::vector<std::array<int32_t, 3>> triangles;  // into points, wound outward
};

// One physics body of the collision file.
struct PhysicsSolid {
  std::string name;   // as the text section names it (a bone name for ragdolls)
  int32_t bone = -1;  // the skeleton bone of that name; -1 for none
  std::string surfaceProp;
  float mass = 0;
  float damping = 0;
  float rotDamping = 0;
  float inertia = 1;
  std::vector<PhysicsPiece> pieces;
};

// A ragdoll joint between two solids, by solid index; per axis x, y, z in degrees.
struct PhysicsConstraint {
  int32_t parent = -1;
  int32_t child = -1;
  std::array<float, 3> min{};
  std::array<float, 3> max{};
  std::array<float, 3> friction{};
};

struct ModelTables {
  std::vector<SkeletonBone> skeleton;
  MaterialSlots materials;
  std::vector<MeshPart> meshParts;
  FlexModel flexes;
  std::vector<BodyGroup> bodyGroups;
  int32_t lodCount = 1;  // LODs exported
  std::vector<AnimExportRecord> animations;
  size_t ownAnimationCount = 0;  // the main model's; the rest come from included models
  std::vector<SequenceRecord> sequences;
  std::vector<WeightList> weightLists;
  std::vector<PhysicsSolid> physicsSolids;
  std::vector<PhysicsConstraint> physicsConstraints;
  // The collision file's break pieces: one "break" section of keys per piece.
  std::vector<KeyValues> breakPieces;
  // The model's key-value block (prop data, door options, particles ...), read once.
  std::optional<KeyValues> modelKeys;
  // Material names in their new form (".qmat"), in the order the reference list names them.
  std::vector<std::string> referencedMaterials;
};

}  // namespace zv
