#pragma once
// What a forged model family holds: plain structs whose defaults give a small valid
// model, so that a test states only the parts it cares about. Everything is written as
// given, also when it is inconsistent (a bad index, a wrong count): tests need such files.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/math.h"

namespace zv::mdlforge {

// ---- Skeleton -------------------------------------------------------------------------

// Spring bone settings: flags and the 29 floats in file order (length, tip mass, yaw
// stiffness ... base forward friction). boing, when set, adds the 5 floats of the longer
// record (impact speed, impact angle, damping rate, frequency, amplitude).
struct Jiggle {
  int32_t flags = 0;
  std::array<float, 29> values{};
  std::optional<std::array<float, 5>> boing;
};

// Any other procedural record, written as given with its type number.
struct Procedural {
  int32_t type = 0;
  std::vector<uint8_t> bytes;
};

struct Bone {
  std::string name;
  int32_t parent = -1;
  Vector3 position;
  // With only one of the two rotations given, the other is derived from it; with neither,
  // the bone is unrotated.
  std::optional<Quaternion> quaternion;
  std::optional<RadianEuler> euler;
  Vector3 positionScale{1, 1, 1};
  Vector3 rotationScale{1, 1, 1};
  // Default: the inverse of the bone's model-space bind transform.
  std::optional<Matrix3x4> poseToBone;
  Quaternion alignment;
  int32_t flags = 0;
  std::string surfaceProp;
  int32_t contents = 0;
  std::optional<Jiggle> jiggle;          // procedural type 5
  std::optional<Procedural> procedural;  // used when jiggle is not set
};

// ---- Geometry -------------------------------------------------------------------------

struct Vertex {
  Vector3 position;
  Vector3 normal{0, 0, 1};
  Vector2 uv;
  std::array<float, 3> weights{1, 0, 0};
  std::array<uint8_t, 3> bones{0, 0, 0};
  uint8_t boneCount = 1;
  Vector4 tangent{1, 0, 0, 1};
  // A second texture coordinate; when any vertex has one, the vertex file gets the
  // extra-data table (vertices without one store (0, 0)).
  std::optional<Vector2> uv2;
};

struct Strip {
  std::vector<uint16_t> indices;  // into the strip group's vertices
  uint8_t flags = 1;              // triangle list
};

struct StripGroup {
  std::vector<uint16_t> vertices;  // each one an index into the mesh's vertices
  std::vector<Strip> strips;
  uint8_t flags = 0;
};

// A strip group over every vertex of a mesh of vertexCount vertices (strip vertex i is
// mesh vertex i) with one triangle-list strip of the given corners.
StripGroup triangleGroup(size_t vertexCount, std::vector<uint16_t> corners);

// ---- Flexes ---------------------------------------------------------------------------

// One moved vertex of a mesh flex; deltas are stored as half floats.
struct VertexDelta {
  uint16_t vertex = 0;  // within the mesh
  uint8_t speed = 255;
  uint8_t side = 0;
  Vector3 position;
  Vector3 normal;
  float wrinkle = 0;  // stored only by wrinkle flexes
};

// The deltas one descriptor applies to a mesh inside a weight window.
struct MeshFlex {
  int32_t descriptor = 0;
  std::array<float, 4> window{0, 1, 10, 11};
  int32_t partner = 0;   // the other side's descriptor of a stereo flex; 0 for none
  bool wrinkle = false;  // 18-byte vertex animation records
  std::vector<VertexDelta> deltas;
};

struct FlexController {
  std::string type;
  std::string name;
  float min = 0;
  float max = 1;
};

// A rule op: the constant's value for op 1, the index (controller, descriptor or count)
// for every other op.
struct FlexOp {
  int32_t code = 1;
  float value = 0;
  int32_t index = 0;
};

struct FlexRule {
  int32_t target = 0;
  std::vector<FlexOp> ops;
};

// Controller slots are stored as offsets from the UI record to the controller records;
// -1 stores 0 (none). An index past the controller table is written as if it were there.
struct FlexControllerUi {
  std::string name;
  int32_t controller = -1;  // the left one when stereo
  int32_t right = -1;
  int32_t value = -1;  // the value controller of n-way and eyelid remaps
  uint8_t remap = 0;
  bool stereo = false;
};

struct Mesh {
  int32_t material = 0;
  std::vector<Vertex> vertices;
  // lods[l] holds the strip groups of LOD l; LODs past the end have none.
  std::vector<std::vector<StripGroup>> lods;
  int32_t materialType = 0;
  int32_t materialParam = 0;
  uint8_t stripFlags = 0;  // flags of the strip-file mesh record
  std::vector<MeshFlex> flexes;
};

struct SubModel {
  std::string name;
  std::vector<Mesh> meshes;  // none: an empty sub-model ("blank" body group choice)
};

struct BodyPart {
  std::string name;
  std::optional<int32_t> base;  // default: product of the earlier parts' model counts
  std::vector<SubModel> models;
};

// ---- Materials ------------------------------------------------------------------------

struct MaterialReplacement {
  int16_t material = 0;
  std::string name;
};

// ---- Model document data --------------------------------------------------------------

struct PoseParameter {
  std::string name;
  int32_t flags = 0;  // bit 0: looping
  float start = 0;
  float end = 1;
  float loop = 0;
};

struct Attachment {
  std::string name;
  int32_t flags = 0;
  int32_t bone = 0;
  Matrix3x4 local;  // from the bone's frame
};

struct Hitbox {
  int32_t bone = 0;
  int32_t group = 0;
  Vector3 min;
  Vector3 max;
  std::string name;  // empty: no name (offset 0)
  Vector3 orientation;
  float radius = 0;  // 0: a box
};

struct HitboxSet {
  std::string name = "default";
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

struct IncludeModel {
  std::string label;
  std::string fileName;
};

struct BodyGroupPreset {
  std::string name;
  int32_t value = 0;
  int32_t mask = 0;
};

// ---- Animation ------------------------------------------------------------------------

struct Movement {
  int32_t endFrame = 0;
  int32_t motionFlags = 0;
  float startVelocity = 0;
  float endVelocity = 0;
  float yaw = 0;
  Vector3 direction;
  Vector3 position;
};

// Animation data given by value, which the builder encodes in the legacy forms.

// A run of a run-length value channel: `total` frames, the first values.size() of them
// with their own value, the rest repeating the last (total 0 ends the channel).
struct ValueRun {
  uint8_t total = 0;
  std::vector<int16_t> values;  // at most 255
};

// One value channel of a run-length track: the stored i16 of every frame of the
// animation (the decoder multiplies it by the bone's position or rotation scale). The
// builder packs them into runs of at most 255 frames; `runs`, when set, is written
// instead, exactly as given. Without frames or runs the channel is absent (offset 0).
struct ValueChannel {
  std::vector<int16_t> frames;
  std::optional<std::vector<ValueRun>> runs;
};

// One bone's record of the run-length form. The track flags follow from what is set
// (0x01 raw position, 0x02 / 0x20 raw rotation in 48 / 64 bits, 0x04 animated position,
// 0x08 animated rotation, 0x10 delta) unless `flags` replaces them.
struct RleTrack {
  uint8_t bone = 0;
  std::optional<Quaternion> rawRotation;
  bool rawRotation64 = false;
  std::optional<Vector3> rawPosition;  // stored as three half floats
  std::optional<std::array<ValueChannel, 3>> rotation;  // x, y, z (radian Euler / rotation scale)
  std::optional<std::array<ValueChannel, 3>> position;  // x, y, z (/ position scale)
  bool delta = false;
  std::optional<uint8_t> flags;
};

// Where a bone's rotation and position come from in the frame-packed form (flag 0x40):
// the per-frame stream or the constants stream, and in which packing.
enum class PackedRotation : uint8_t { None, Frame48, FrameOmitted, Constant48, ConstantOmitted };
enum class PackedPosition : uint8_t { None, FrameHalf, ConstantHalf, FrameFloat, ConstantFloat };

struct FramePackedBone {
  PackedRotation rotationForm = PackedRotation::None;
  PackedPosition positionForm = PackedPosition::None;
  // One value per frame for a frame form, one value for a constant form.
  std::vector<Quaternion> rotations;
  std::vector<Vector3> positions;
  std::optional<uint8_t> flags;  // written instead of the flags the forms give
};

struct AnimationTracks {
  // The run-length form: one record per entry, in order (a chain ended by the last).
  std::vector<RleTrack> rle;
  // The frame-packed form instead (the builder sets flag 0x40): one entry per bone of the
  // model, in bone order.
  std::optional<std::vector<FramePackedBone>> framePacked;
};

struct Animation {
  std::string name;
  float fps = 30;
  int32_t flags = 0;
  int32_t frames = 1;
  // Encoded track data stored inside the model right after the descriptions. Without it
  // (and without sections or tracks) the description says "no data" (block -1).
  std::optional<std::vector<uint8_t>> data;
  // Sectioned data: framesPerSection > 0 and one byte block per section entry, in order.
  // The table gets one entry per block given; the description points at the first.
  int32_t framesPerSection = 0;
  std::vector<std::vector<uint8_t>> sections;
  std::vector<Movement> movements;
  // Tracks by value, encoded by the builder instead of `data` / `sections`. With
  // framesPerSection > 0 they are split into frames / framesPerSection + 2 sections:
  // section k holds frames k * framesPerSection up to the next section's first frame
  // (inclusive, as the compiler keeps it for interpolation), the last one only the last
  // frame.
  std::optional<AnimationTracks> tracks;
  // 0: the encoded tracks are stored in the model; n > 0: in block n of the .ani file.
  int32_t block = 0;
  // Per section, the block that holds it; empty: every section in `block`.
  std::vector<int32_t> sectionBlocks;
};

// The external animation block file (.ani), written when any animation's tracks are in
// a block n > 0: a 408-byte header with its id, then the blocks in order. The model names
// the file and carries the block table (entry 0 unused).
struct AnimBlockFileOptions {
  std::optional<std::string> name;  // the name the model stores; default: the model's name with ".ani"
  int32_t id = 0x47414449;          // "IDAG"
};

struct Event {
  float cycle = 0;
  int32_t id = 0;
  std::optional<int32_t> type;  // default: 1024 for a named event, else 0
  std::string options;          // at most 63 characters
  std::string name;             // empty: an old-style numeric event (name offset 0)
};

struct AutoLayer {
  int16_t sequence = 0;
  int16_t pose = 0;
  int32_t flags = 0;
  float start = 0, peak = 0, tail = 0, end = 0;
};

struct Sequence {
  std::string name;
  std::string activity;
  std::optional<int32_t> activityWeight;  // default: 1 with an activity name, else 0
  int32_t flags = 0;
  Vector3 boundsMin, boundsMax;
  // The animation grid: width columns along parameter 0, height rows along parameter 1;
  // animations[y * width + x]. An empty list writes no grid (blend count 0).
  int32_t width = 1;
  int32_t height = 1;
  std::vector<int16_t> animations{0};
  std::array<int32_t, 2> paramIndex{-1, -1};
  std::array<float, 2> paramStart{0, 0};
  std::array<float, 2> paramEnd{1, 1};
  float fadeIn = 0.2f;
  float fadeOut = 0.2f;
  int32_t entryNode = 0, exitNode = 0, nodeFlags = 0;
  float entryPhase = 0, exitPhase = 0, lastFrame = 0;
  int32_t nextSequence = 0;
  int32_t cyclePose = 0;
  std::vector<Event> events;
  std::string keyValues;  // empty: none
  // One weight per bone; empty: 1 for every bone. Equal lists are stored once.
  std::vector<float> weights;
  // Written when width or height is above 1; default: even steps 0..1 along each axis.
  std::optional<std::vector<float>> poseKeys;
  std::vector<AutoLayer> autoLayers;
  std::vector<std::string> activityModifiers;
};

// ---- Files ----------------------------------------------------------------------------

enum class StripLayout {
  Auto,      // 33/35 for version 49, 25/27 before
  Short,     // 25-byte strip groups, 27-byte strips
  Extended,  // 33-byte strip groups, 35-byte strips
};

struct StripFileOptions {
  bool write = true;
  StripLayout layout = StripLayout::Auto;
  int32_t version = 7;
  std::optional<int32_t> checksum;  // default: the model's
  std::optional<int32_t> lodCount;  // default: the most LODs of any mesh, at least 1
  // Switch point of LOD l (the same for every sub-model); default 0 for LOD 0, else 10*l.
  std::vector<float> switchPoints;
  // replacements[l]: the material replacements of LOD l.
  std::vector<std::vector<MaterialReplacement>> replacements;
  int32_t vertexCacheSize = 24;
  uint16_t maxBonesPerStrip = 53;
  uint16_t maxBonesPerTriangle = 9;
  int32_t maxBonesPerVertex = 3;
};

struct Fixup {
  int32_t lod = 0;
  int32_t source = 0;  // first vertex in the stored array
  int32_t count = 0;
};

enum class FixupMode {
  None,      // vertices stored in mesh order
  Auto,      // stored grouped by the last LOD that uses them, with the fixups to reorder
  Explicit,  // fixups and stored order exactly as given
};

struct VertexFileOptions {
  bool write = true;
  int32_t id = 0x56534449;  // "IDSV"
  int32_t version = 4;
  std::optional<int32_t> checksum;  // default: the model's
  std::optional<int32_t> lodCount;  // default: the strip file's
  bool tangents = true;             // false: tangent offset 0, no tangent array
  FixupMode fixupMode = FixupMode::None;
  // Explicit mode: the table, and the stored order (position i holds the mesh-order
  // vertex storedOrder[i]; empty means mesh order).
  std::vector<Fixup> fixups;
  std::vector<int32_t> storedOrder;
};

struct Description {
  std::string name = "models/forge/model.mdl";  // header name, at most 63 characters
  std::string longName;                         // secondary header name; empty: none
  int32_t version = 48;
  int32_t checksum = 0x0F0E0D0C;
  int32_t flags = 0;
  Vector3 eyePosition, illumPosition;
  Vector3 hullMin, hullMax;
  Vector3 viewMin, viewMax;
  float mass = 0;
  int32_t contents = 0;
  std::string surfaceProp = "default";
  uint8_t constDirectionalLightDot = 0;
  uint8_t rootLod = 0;
  uint8_t allowedRootLods = 0;
  int32_t illumAttachment = 0;  // secondary header
  float maxEyeDeflection = 0;   // secondary header
  bool linearBoneTable = false;
  // Forces the secondary header for versions before 48 (it is always written from 48 on,
  // and whenever a long name, presets or the linear bone table ask for it).
  bool secondaryHeader = false;

  std::vector<Bone> bones;
  std::vector<BodyPart> bodyParts;
  std::vector<std::string> textures;
  std::vector<std::string> textureDirs;
  // Rows of material indices; empty: one row 0..textures-1. Short rows are completed
  // with their column index.
  std::vector<std::vector<int16_t>> skinFamilies;
  std::string keyValues;  // empty: none
  std::vector<PoseParameter> poseParameters;
  std::vector<Attachment> attachments;
  std::vector<HitboxSet> hitboxSets;
  std::vector<IkChain> ikChains;
  std::vector<IncludeModel> includes;
  std::vector<BodyGroupPreset> presets;
  std::vector<Animation> animations;
  std::vector<Sequence> sequences;
  std::vector<std::string> flexDescriptors;
  std::vector<FlexController> flexControllers;
  std::vector<FlexRule> flexRules;
  std::vector<FlexControllerUi> flexControllerUis;

  StripFileOptions strip;
  VertexFileOptions vertexFile;
  AnimBlockFileOptions animBlockFile;
};

}  // namespace zv::mdlforge
