#pragma once
// The model header file (.mdl), decoded and validated once at load. Every table that a
// later stage walks is located through checked reads here; after a successful parse the
// stages index these vectors freely. Only the header, the bones and the tables meshes are
// built from fail the file; a broken optional record (an animation, a sequence, an
// attachment, the key-value text ...) is left out with a note. Cross-references between
// tables (bone, material and vertex indices) are kept as stored and checked where they
// are used; a sequence's animation grid is checked here.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/math.h"
#include "base/result.h"
#include "legacy/flex.h"

namespace zv::legacy {

inline constexpr int32_t kMdlId = 0x54534449;  // "IDST"
inline constexpr int32_t kMinMdlVersion = 44;
inline constexpr int32_t kMaxMdlVersion = 49;
inline constexpr size_t kMdlHeaderSize = 408;
// Header flag of models compiled as static props.
inline constexpr int32_t kStaticPropFlag = 0x10;
// Flags of animation descriptions and sequences (the same bits in both).
inline constexpr int32_t kLoopingFlag = 0x0001;
inline constexpr int32_t kDeltaFlag = 0x0004;
inline constexpr int32_t kAllZerosFlag = 0x0020;
inline constexpr int32_t kHiddenFlag = 0x0400;
inline constexpr int32_t kWorldSpaceFlag = 0x4000;
inline constexpr int32_t kWorldAndRelativeFlag = 0x20000;
// Auto-layer flag of a layer driven by a pose parameter rather than by cycles.
inline constexpr int32_t kPoseLayerFlag = 0x4000;

struct JiggleParams {
  int32_t flags = 0;
  std::array<float, 29> values{};  // length, tip mass, ... base forward friction, in record order
};

struct Bone {
  std::string name;
  int32_t parent = -1;
  Vector3 position;
  Quaternion quaternion;
  RadianEuler rotation;
  Vector3 positionScale;
  Vector3 rotationScale;
  Matrix3x4 poseToBone;
  Quaternion alignment;
  uint32_t flags = 0;
  int32_t proceduralType = 0;
  std::optional<JiggleParams> jiggle;
  std::string surfaceProp;
  int32_t contents = 0;
  size_t recordOffset = 0;  // absolute position of the record in the file
};

struct Mesh {
  int32_t material = 0;
  int32_t vertexCount = 0;
  int32_t vertexOffset = 0;  // first vertex, counted from the sub-model's first vertex
  int32_t materialType = 0;
  int32_t materialParam = 0;
  int32_t meshId = 0;
  Vector3 center;
  std::array<int32_t, 8> lodVertexCounts{};
  std::vector<MeshFlex> flexes;
  size_t recordOffset = 0;  // absolute position of the record in the file
};

struct SubModel {
  std::string name;
  int32_t type = 0;
  float boundingRadius = 0;
  int32_t vertexCount = 0;
  int32_t vertexIndex = 0;  // byte offset into the vertex array, a multiple of 48
  int32_t tangentIndex = 0;
  int32_t eyeballCount = 0;
  std::vector<Mesh> meshes;
};

struct BodyPart {
  std::string name;
  int32_t base = 0;
  std::vector<SubModel> models;
};

struct Texture {
  std::string name;
  int32_t flags = 0;
};

struct Movement {
  int32_t endFrame = 0;
  int32_t motionFlags = 0;
  float startVelocity = 0;
  float endVelocity = 0;
  float yaw = 0;
  Vector3 direction;
  Vector3 position;
};

struct AnimSection {
  int32_t block = 0;
  int32_t offset = 0;
};

struct AnimDesc {
  std::string name;
  float fps = 0;
  int32_t flags = 0;
  int32_t frameCount = 0;
  std::vector<Movement> movements;
  int32_t block = 0;       // 0 inside the model, -1 no data, n > 0 block n of the block table
  int32_t dataOffset = 0;  // relative to the description for block 0, to the block start otherwise
  int32_t framesPerSection = 0;
  std::vector<AnimSection> sections;
  size_t recordOffset = 0;  // absolute position of the record in the file
  // Why the animation cannot be decoded (its record is broken); empty when it can.
  std::string error;
};

struct AnimEvent {
  float cycle = 0;
  int32_t id = 0;
  int32_t type = 0;
  std::string options;
  std::string name;
};

struct AutoLayer {
  int16_t sequence = 0;
  int16_t pose = 0;
  int32_t flags = 0;
  float start = 0, peak = 0, tail = 0, end = 0;
};

struct SequenceDesc {
  std::string name;
  std::string activityName;
  int32_t flags = 0;
  int32_t activityWeight = 0;
  std::vector<AnimEvent> events;
  Vector3 boundsMin, boundsMax;
  std::array<int32_t, 2> groupSize{1, 1};
  std::array<int32_t, 2> paramIndex{-1, -1};
  std::array<float, 2> paramStart{};
  std::array<float, 2> paramEnd{};
  // groupSize[0] * groupSize[1] animations of this model, row by row; none for a sequence
  // without animation (a 0 x 0 grid).
  std::vector<int16_t> animIndices;
  float fadeInTime = 0, fadeOutTime = 0;
  int32_t entryNode = 0, exitNode = 0, nodeFlags = 0;
  int32_t nextSequence = 0;
  std::vector<AutoLayer> autoLayers;
  std::vector<float> weights;   // one per bone; empty when the sequence has no list
  std::vector<float> poseKeys;  // groupSize[0] + groupSize[1] values when present
  std::string keyValues;
  int32_t cyclePoseIndex = 0;
  std::vector<std::string> activityModifiers;
  std::vector<std::pair<std::string, float>> animTags;  // name and cycle
  // Why the sequence was left out (its record is broken); empty when it is usable.
  std::string error;
};

struct Attachment {
  std::string name;
  int32_t flags = 0;
  int32_t bone = 0;
  Matrix3x4 local;
};

struct Hitbox {
  int32_t bone = 0;
  int32_t group = 0;
  Vector3 min, max;
  float radius = 0;
  int32_t radiusBits = 0;  // the radius field read as an integer
};

struct HitboxSet {
  std::string name;
  std::vector<Hitbox> hitboxes;
};

struct IkLink {
  int32_t bone = 0;
  Vector3 kneeDirection;
};

struct IkChain {
  std::string name;
  int32_t linkType = 0;
  std::vector<IkLink> links;
};

struct PoseParam {
  std::string name;
  int32_t flags = 0;
  float start = 0, end = 0, loop = 0;
};

struct IncludeModel {
  std::string label;
  std::string fileName;
};

struct AnimBlock {
  int32_t start = 0, end = 0;
};

struct BodyGroupPreset {
  std::string name;
  int32_t value = 0;
  int32_t mask = 0;
};

// Bone defaults stored once more as arrays, when the model has the table.
struct LinearBoneTable {
  std::vector<Vector3> positions;
  std::vector<Quaternion> quaternions;
  std::vector<Vector3> positionScales;
  std::vector<Quaternion> alignments;
};

struct MdlHeader {
  int32_t id = 0;
  int32_t version = 0;
  int32_t checksum = 0;
  std::string name;
  int32_t length = 0;
  Vector3 eyePosition, illuminationPosition;
  Vector3 hullMin, hullMax, viewMin, viewMax;
  int32_t flags = 0;
  int32_t skinReferenceCount = 0;
  int32_t skinFamilyCount = 0;
  float mass = 0;
  int32_t contents = 0;
  uint8_t rootLod = 0;
  int32_t secondaryHeaderOffset = 0;  // 0 when none (always 0 before version 48)
};

class MdlFile {
 public:
  // Decodes and validates the whole file; the error names the file, the record and the offset.
  static Result<MdlFile> parse(std::string fileName, std::vector<uint8_t> bytes);

  // Views into the bytes (vertex animations) stay valid when the file is moved, never
  // copied.
  MdlFile() = default;
  MdlFile(MdlFile&&) = default;
  MdlFile& operator=(MdlFile&&) = default;
  MdlFile(const MdlFile&) = delete;
  MdlFile& operator=(const MdlFile&) = delete;

  const std::string& fileName() const { return fileName_; }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  MdlHeader header;
  std::string longName;  // from the secondary header; empty when absent
  std::vector<Bone> bones;
  std::vector<BodyPart> bodyParts;
  std::vector<Texture> textures;
  std::vector<std::string> textureDirs;
  std::vector<std::vector<int16_t>> skins;  // skin family rows of skinReferenceCount entries
  std::vector<AnimDesc> animations;
  std::vector<SequenceDesc> sequences;
  std::vector<Attachment> attachments;
  std::vector<HitboxSet> hitboxSets;
  std::vector<IkChain> ikChains;
  std::vector<PoseParam> poseParams;
  std::vector<IncludeModel> includes;
  std::string keyValues;
  std::string surfaceProp;
  std::string animBlockName;
  std::vector<AnimBlock> animBlocks;
  std::vector<BodyGroupPreset> bodyGroupPresets;
  std::optional<LinearBoneTable> linearBones;
  FlexTables flexes;
  // Optional records left out because they are broken, one message each (file, record,
  // offset, what is wrong); the rest of the model is usable.
  std::vector<std::string> notes;

  // The long name when the model has one, else the header name.
  const std::string& modelName() const { return longName.empty() ? header.name : longName; }

 private:
  std::string fileName_;
  std::vector<uint8_t> bytes_;
};

}  // namespace zv::legacy
