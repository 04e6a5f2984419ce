// The model header file: a 408-byte header whose table fields are patched as the tables
// are appended, an optional secondary header right after it, the tables, and one pool of
// strings at the end.

#include <algorithm>
#include <bit>
#include <map>
#include <numeric>
#include <stdexcept>

#include "base/path.h"
#include "base/strings.h"
#include "mdlforge/anim_encoder.h"
#include "mdlforge/byte_writer.h"
#include "mdlforge/flex_writer.h"
#include "mdlforge/writers.h"

namespace zv::mdlforge {
namespace {

constexpr int32_t kModelId = 0x54534449;  // "IDST"
constexpr size_t kHeaderSize = 408;
constexpr size_t kSecondaryHeaderSize = 256;
constexpr int32_t kJiggleType = 5;
constexpr int32_t kNamedEventType = 1024;
constexpr int32_t kFramePackedFlag = 0x0040;

// Header fields (from the file start) that the table writers fill in.
enum HeaderField : size_t {
  kLength = 76,
  kBones = 156,
  kHitboxSets = 172,
  kAnimations = 180,
  kSequences = 188,
  kTextures = 204,
  kTextureDirs = 212,
  kSkinRefCount = 220,
  kSkinFamilies = 224,
  kBodyParts = 232,
  kAttachments = 240,
  kIkChains = 284,
  kPoseParameters = 300,
  kSurfaceProp = 308,
  kKeyValues = 312,
  kMass = 328,
  kContents = 332,
  kIncludes = 336,
  kAnimBlockName = 348,
  kAnimBlocks = 352,
  kBoneTableByName = 364,
  kLightDot = 376,
  kSecondaryHeader = 400,
};

// Secondary header fields (from its start).
enum SecondaryField : size_t {
  kIllumAttachment = 8,
  kEyeDeflection = 12,
  kLinearBones = 16,
  kLongName = 20,
  kPresets = 36,
};

// Throws when a record writer and the record size disagree: a bug here, not bad input.
void expectRecordSize(const ByteWriter& w, size_t start, size_t size, const char* record) {
  if (w.size() - start != size) {
    throw std::logic_error(format("%s record is %zu bytes, not %zu", record, w.size() - start, size));
  }
}

bool wantsSecondaryHeader(const Description& d) {
  return d.version >= 48 || d.secondaryHeader || !d.longName.empty() || !d.presets.empty() ||
         d.linearBoneTable;
}

std::vector<uint32_t> floatBits(const std::vector<float>& values) {
  std::vector<uint32_t> bits;
  for (float v : values) bits.push_back(std::bit_cast<uint32_t>(v));
  return bits;
}

class ModelWriter {
 public:
  ModelWriter(const Description& d, const VertexPlan& plan) : d_(d), plan_(plan) {}

  WrittenFile write() {
    writeHeader();
    writeBones();
    writeAttachments();
    writeHitboxSets();
    writeAnimations();
    writeSequences();
    writeBodyParts();
    writePoseParameters();
    writeIkChains();
    writeIncludes();
    FlexWriter(d_, w_, pool_, where_).writeTables();
    writeMaterials();
    writeKeyValues();
    writeSecondaryTables();
    w_.alignTo(4);
    where_.set("strings", w_.size());
    pool_.flush(w_);
    w_.patchI32(kLength, static_cast<int32_t>(w_.size()));
    return {w_.take(), std::move(where_)};
  }

 private:
  // Starts a table: aligns, records the position under key, sets the header's count and
  // offset pair at field.
  size_t beginTable(size_t field, size_t count, const char* key) {
    w_.alignTo(4);
    where_.set(key, w_.size());
    w_.patchI32(field, static_cast<int32_t>(count));
    w_.patchOffsetHere(field + 4, 0);
    return w_.size();
  }

  void writeHeader() {
    w_.i32(kModelId);
    w_.i32(d_.version);
    w_.i32(d_.checksum);
    w_.fixedString(d_.name, 64);
    w_.i32(0);  // length, patched last
    w_.vec3(d_.eyePosition);
    w_.vec3(d_.illumPosition);
    w_.vec3(d_.hullMin);
    w_.vec3(d_.hullMax);
    w_.vec3(d_.viewMin);
    w_.vec3(d_.viewMax);
    w_.i32(d_.flags);
    w_.zeros(kHeaderSize - w_.size());
    pool_.referenceField(kSurfaceProp, 0, d_.surfaceProp);
    w_.patchF32(kMass, d_.mass);
    w_.patchI32(kContents, d_.contents);
    // Three bytes at 376..378; the fourth is unused.
    w_.patchI32(kLightDot, d_.constDirectionalLightDot | (d_.rootLod << 8) | (d_.allowedRootLods << 16));

    if (!wantsSecondaryHeader(d_)) return;
    size_t start = w_.size();
    secondary_ = start;
    where_.set("secondary", start);
    w_.patchOffsetHere(kSecondaryHeader, 0);
    w_.zeros(kSecondaryHeaderSize);
    w_.patchI32(start + kIllumAttachment, d_.illumAttachment);
    w_.patchF32(start + kEyeDeflection, d_.maxEyeDeflection);
    if (!d_.longName.empty()) pool_.referenceField(start + kLongName, start, d_.longName);
  }

  void writeBones() {
    std::vector<Matrix3x4> poseToBone = defaultPoseToBone(d_.bones);
    beginTable(kBones, d_.bones.size(), "bones");
    std::vector<size_t> starts, proceduralFields;
    for (size_t i = 0; i < d_.bones.size(); ++i) {
      const Bone& bone = d_.bones[i];
      size_t start = w_.size();
      starts.push_back(start);
      where_.set(placeKey("bone", {i}), start);
      pool_.reference(w_, start, bone.name);
      w_.i32(bone.parent);
      for (int c = 0; c < 6; ++c) w_.i32(-1);  // no bone controllers
      w_.vec3(bone.position);
      w_.quat(boneQuaternion(bone));
      w_.euler(boneEuler(bone));
      w_.vec3(bone.positionScale);
      w_.vec3(bone.rotationScale);
      w_.matrix(bone.poseToBone.value_or(poseToBone[i]));
      w_.quat(bone.alignment);
      w_.i32(bone.flags);
      w_.i32(bone.jiggle ? kJiggleType : (bone.procedural ? bone.procedural->type : 0));
      proceduralFields.push_back(w_.reserveI32());
      w_.i32(0);  // physics bone
      pool_.reference(w_, start, bone.surfaceProp);
      w_.i32(bone.contents);
      w_.zeros(32);
      expectRecordSize(w_, start, 216, "bone");
    }
    for (size_t i = 0; i < d_.bones.size(); ++i) {
      const Bone& bone = d_.bones[i];
      if (!bone.jiggle && !bone.procedural) continue;
      w_.alignTo(4);
      where_.set(placeKey("procedural", {i}), w_.size());
      w_.patchOffsetHere(proceduralFields[i], starts[i]);
      if (bone.jiggle) {
        writeJiggle(*bone.jiggle);
      } else {
        w_.raw(bone.procedural->bytes);
      }
    }
    writeBoneTableByName();
  }

  void writeJiggle(const Jiggle& jiggle) {
    w_.i32(jiggle.flags);
    for (float value : jiggle.values) w_.f32(value);
    if (jiggle.boing) {
      for (float value : *jiggle.boing) w_.f32(value);
    }
  }

  // Bone numbers sorted by name, ignoring case, as the run-time name look-up wants them.
  void writeBoneTableByName() {
    std::vector<size_t> order(d_.bones.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
      return toLower(d_.bones[a].name) < toLower(d_.bones[b].name);
    });
    where_.set("bonetable", w_.size());
    w_.patchOffsetHere(kBoneTableByName, 0);
    for (size_t index : order) w_.u8(static_cast<uint8_t>(index));
  }

  void writeAttachments() {
    beginTable(kAttachments, d_.attachments.size(), "attachments");
    for (size_t i = 0; i < d_.attachments.size(); ++i) {
      const Attachment& attachment = d_.attachments[i];
      size_t start = w_.size();
      where_.set(placeKey("attachment", {i}), start);
      pool_.reference(w_, start, attachment.name);
      w_.i32(attachment.flags);
      w_.i32(attachment.bone);
      w_.matrix(attachment.local);
      w_.zeros(32);
      expectRecordSize(w_, start, 92, "attachment");
    }
  }

  void writeHitboxSets() {
    beginTable(kHitboxSets, d_.hitboxSets.size(), "hitboxsets");
    std::vector<PendingOffset> boxes;
    for (size_t s = 0; s < d_.hitboxSets.size(); ++s) {
      const HitboxSet& set = d_.hitboxSets[s];
      size_t start = w_.size();
      where_.set(placeKey("hitboxset", {s}), start);
      pool_.reference(w_, start, set.name);
      w_.i32(static_cast<int32_t>(set.hitboxes.size()));
      boxes.push_back({w_.reserveI32(), start});
    }
    for (size_t s = 0; s < d_.hitboxSets.size(); ++s) {
      w_.patchOffsetHere(boxes[s].field, boxes[s].base);
      for (size_t h = 0; h < d_.hitboxSets[s].hitboxes.size(); ++h) {
        const Hitbox& box = d_.hitboxSets[s].hitboxes[h];
        size_t start = w_.size();
        where_.set(placeKey("hitbox", {s, h}), start);
        w_.i32(box.bone);
        w_.i32(box.group);
        w_.vec3(box.min);
        w_.vec3(box.max);
        if (box.name.empty()) {
          w_.i32(0);
        } else {
          pool_.reference(w_, start, box.name);
        }
        w_.vec3(box.orientation);
        w_.f32(box.radius);
        w_.zeros(16);
        expectRecordSize(w_, start, 68, "hit box");
      }
    }
  }

  struct AnimFields {
    size_t start, movements, block, index, sections;
  };
  struct Placed {
    int32_t block;
    size_t offset;  // absolute in the model for block 0, from the block's start otherwise
  };

  // A data offset: relative to the description in the model, to the block's start in a block.
  void patchDataOffset(size_t field, size_t descStart, const Placed& placed) {
    if (placed.block == 0) {
      w_.patchOffset(field, descStart, placed.offset);
    } else {
      w_.patchI32(field, int32_t(placed.offset));
    }
  }

  void writeAnimations() {
    beginTable(kAnimations, d_.animations.size(), "animdescs");
    std::vector<AnimFields> fields;
    for (size_t a = 0; a < d_.animations.size(); ++a) {
      const Animation& anim = d_.animations[a];
      AnimFields f{w_.size(), 0, 0, 0, 0};
      where_.set(placeKey("animdesc", {a}), f.start);
      w_.i32(-static_cast<int32_t>(f.start));
      pool_.reference(w_, f.start, anim.name);
      w_.f32(anim.fps);
      w_.i32(anim.tracks && anim.tracks->framePacked ? anim.flags | kFramePackedFlag : anim.flags);
      w_.i32(anim.frames);
      w_.i32(static_cast<int32_t>(anim.movements.size()));
      f.movements = w_.reserveI32();
      w_.zeros(24);  // zero-frame IK rules and unused words
      f.block = w_.reserveI32();
      f.index = w_.reserveI32();
      w_.zeros(20);  // IK rules and local hierarchy: none
      f.sections = w_.reserveI32();
      w_.i32(anim.framesPerSection);
      w_.zeros(12);  // zero-frame cache: none
      expectRecordSize(w_, f.start, 100, "animation description");
      fields.push_back(f);
    }
    for (size_t a = 0; a < d_.animations.size(); ++a) {
      const Animation& anim = d_.animations[a];
      const AnimFields& f = fields[a];
      w_.patchI32(f.block, anim.data || !anim.sections.empty() || anim.tracks ? 0 : -1);
      if (!anim.movements.empty()) {
        w_.alignTo(4);
        where_.set(placeKey("movements", {a}), w_.size());
        w_.patchOffsetHere(f.movements, f.start);
        for (const Movement& piece : anim.movements) writeMovement(piece);
      }
      if (anim.tracks) {
        writeTracks(a, f);
      } else if (!anim.sections.empty()) {
        writeSections(a, f.start, f.sections, f.index, anim.sections);
      }
      if (anim.data) {
        w_.alignTo(4);
        where_.set(placeKey("animdata", {a}), w_.size());
        w_.patchOffsetHere(f.index, f.start);
        w_.raw(*anim.data);
      }
    }
    writeAnimBlockTable();
  }

  // Tracks given by value, encoded whole or section by section, each piece in the model
  // or in a block of the animation block file.
  void writeTracks(size_t a, const AnimFields& f) {
    const Animation& anim = d_.animations[a];
    if (anim.framesPerSection <= 0) {
      Placed placed = place(a, {}, anim.block, *encodeTracks(*anim.tracks, 0, anim.frames - 1));
      w_.patchI32(f.block, placed.block);
      patchDataOffset(f.index, f.start, placed);
      return;
    }
    std::vector<std::pair<int32_t, int32_t>> ranges = sectionFrames(anim.frames, anim.framesPerSection);
    std::vector<Placed> placed;
    for (size_t s = 0; s < ranges.size(); ++s) {
      int32_t block = s < anim.sectionBlocks.size() ? anim.sectionBlocks[s] : anim.block;
      placed.push_back(place(a, s, block, *encodeTracks(*anim.tracks, ranges[s].first, ranges[s].second)));
    }
    // The table: block and offset per section; the description points at section 0.
    w_.alignTo(4);
    where_.set(placeKey("sections", {a}), w_.size());
    w_.patchOffsetHere(f.sections, f.start);
    for (const Placed& p : placed) {
      w_.i32(p.block);
      patchDataOffset(w_.reserveI32(), f.start, p);
    }
    w_.patchI32(f.block, placed[0].block);
    patchDataOffset(f.index, f.start, placed[0]);
  }

  // Puts one encoded piece (a whole animation, or section `section`) where it belongs.
  Placed place(size_t a, std::optional<size_t> section, int32_t block, const std::vector<uint8_t>& bytes) {
    if (block <= 0) {
      w_.alignTo(4);
      where_.set(section ? placeKey("section", {a, *section}) : placeKey("animdata", {a}), w_.size());
      size_t at = w_.size();
      w_.raw(bytes);
      return {0, at};
    }
    std::vector<uint8_t>& data = blocks_[block];
    size_t at = data.size();
    aniWhere_.emplace_back(section ? placeKey("anisection", {a, *section}) : placeKey("anidata", {a}), block, at);
    data.insert(data.end(), bytes.begin(), bytes.end());
    return {block, at};
  }

  // The table of the animation block file's blocks (entry 0 unused) and its stored name.
  void writeAnimBlockTable() {
    if (blocks_.empty()) return;
    int32_t count = blocks_.rbegin()->first + 1;
    w_.alignTo(4);
    where_.set("animblocks", w_.size());
    w_.patchI32(kAnimBlocks, count);
    w_.patchOffsetHere(kAnimBlocks + 4, 0);
    size_t start = kHeaderSize;
    for (int32_t n = 0; n < count; ++n) {
      auto block = blocks_.find(n);
      size_t size = block == blocks_.end() ? 0 : block->second.size();
      w_.i32(size ? int32_t(start) : 0);
      w_.i32(size ? int32_t(start + size) : 0);
      start += size;
    }
    std::string name = d_.animBlockFile.name.value_or(path::stripExtension(d_.name) + ".ani");
    pool_.referenceField(kAnimBlockName, 0, name);
  }

 public:
  // The animation block file, when any track went to a block.
  std::optional<WrittenFile> animBlockFile() const {
    if (blocks_.empty()) return std::nullopt;
    ByteWriter ani;
    ani.i32(d_.animBlockFile.id);
    ani.zeros(kHeaderSize - 4);
    OffsetMap where;
    std::map<int32_t, size_t> starts;
    for (const auto& [block, data] : blocks_) {
      starts[block] = ani.size();
      where.set(placeKey("block", {size_t(block)}), ani.size());
      ani.raw(data);
    }
    for (const auto& [key, block, offset] : aniWhere_) where.set(key, starts.at(block) + offset);
    ani.patchI32(kLength, int32_t(ani.size()));
    return WrittenFile{ani.take(), std::move(where)};
  }

 private:
  void writeMovement(const Movement& piece) {
    w_.i32(piece.endFrame);
    w_.i32(piece.motionFlags);
    w_.f32(piece.startVelocity);
    w_.f32(piece.endVelocity);
    w_.f32(piece.yaw);
    w_.vec3(piece.direction);
    w_.vec3(piece.position);
  }

  // The section table (block 0 and an offset per section), then each section's bytes;
  // the description itself points at the first section.
  void writeSections(size_t a, size_t descStart, size_t tableField, size_t indexField,
                     const std::vector<std::vector<uint8_t>>& sections) {
    w_.alignTo(4);
    where_.set(placeKey("sections", {a}), w_.size());
    w_.patchOffsetHere(tableField, descStart);
    std::vector<size_t> entries;
    for (size_t s = 0; s < sections.size(); ++s) {
      w_.i32(0);
      entries.push_back(w_.reserveI32());
    }
    for (size_t s = 0; s < sections.size(); ++s) {
      w_.alignTo(4);
      where_.set(placeKey("section", {a, s}), w_.size());
      w_.patchOffsetHere(entries[s], descStart);
      if (s == 0) w_.patchOffsetHere(indexField, descStart);
      w_.raw(sections[s]);
    }
  }

  struct SequenceFields {
    size_t start, events, animIndex, autoLayers, weights, poseKeys, keyValues, modifiers;
  };

  void writeSequences() {
    beginTable(kSequences, d_.sequences.size(), "sequences");
    std::vector<SequenceFields> fields;
    for (size_t s = 0; s < d_.sequences.size(); ++s) {
      where_.set(placeKey("sequence", {s}), w_.size());
      fields.push_back(writeSequenceRecord(d_.sequences[s]));
    }
    std::map<std::vector<uint32_t>, size_t> weightLists;
    for (size_t s = 0; s < d_.sequences.size(); ++s) writeSequenceData(s, fields[s], weightLists);
  }

  SequenceFields writeSequenceRecord(const Sequence& seq) {
    SequenceFields f{};
    f.start = w_.size();
    w_.i32(-static_cast<int32_t>(f.start));
    pool_.reference(w_, f.start, seq.name);
    pool_.reference(w_, f.start, seq.activity);
    w_.i32(seq.flags);
    w_.i32(0);  // activity number: resolved at run time
    w_.i32(seq.activityWeight.value_or(seq.activity.empty() ? 0 : 1));
    w_.i32(static_cast<int32_t>(seq.events.size()));
    f.events = w_.reserveI32();
    w_.vec3(seq.boundsMin);
    w_.vec3(seq.boundsMax);
    w_.i32(static_cast<int32_t>(seq.animations.size()));
    f.animIndex = w_.reserveI32();
    w_.i32(0);  // movement index
    w_.i32(seq.width);
    w_.i32(seq.height);
    w_.i32(seq.paramIndex[0]);
    w_.i32(seq.paramIndex[1]);
    w_.f32(seq.paramStart[0]);
    w_.f32(seq.paramStart[1]);
    w_.f32(seq.paramEnd[0]);
    w_.f32(seq.paramEnd[1]);
    w_.i32(0);  // parameter parent
    w_.f32(seq.fadeIn);
    w_.f32(seq.fadeOut);
    w_.i32(seq.entryNode);
    w_.i32(seq.exitNode);
    w_.i32(seq.nodeFlags);
    w_.f32(seq.entryPhase);
    w_.f32(seq.exitPhase);
    w_.f32(seq.lastFrame);
    w_.i32(seq.nextSequence);
    w_.i32(0);  // pose
    w_.i32(0);  // IK rules
    w_.i32(static_cast<int32_t>(seq.autoLayers.size()));
    f.autoLayers = w_.reserveI32();
    f.weights = w_.reserveI32();
    f.poseKeys = w_.reserveI32();
    w_.i32(0);  // IK locks
    w_.i32(0);
    f.keyValues = w_.reserveI32();
    w_.i32(seq.keyValues.empty() ? 0 : static_cast<int32_t>(seq.keyValues.size() + 1));
    w_.i32(seq.cyclePose);
    f.modifiers = w_.reserveI32();
    w_.i32(static_cast<int32_t>(seq.activityModifiers.size()));
    w_.zeros(20);
    expectRecordSize(w_, f.start, 212, "sequence");
    return f;
  }

  void writeSequenceData(size_t s, const SequenceFields& f,
                         std::map<std::vector<uint32_t>, size_t>& weightLists) {
    const Sequence& seq = d_.sequences[s];
    if (!seq.animations.empty()) {
      where_.set(placeKey("animindex", {s}), w_.size());
      w_.patchOffsetHere(f.animIndex, f.start);
      for (int16_t index : seq.animations) w_.i16(index);
    }
    w_.alignTo(4);
    if (!seq.events.empty()) {
      w_.patchOffsetHere(f.events, f.start);
      for (size_t e = 0; e < seq.events.size(); ++e) {
        where_.set(placeKey("event", {s, e}), w_.size());
        writeEvent(seq.events[e]);
      }
    }
    if (!seq.autoLayers.empty()) {
      w_.patchOffsetHere(f.autoLayers, f.start);
      where_.set(placeKey("autolayers", {s}), w_.size());
      for (const AutoLayer& layer : seq.autoLayers) writeAutoLayer(layer);
    }
    if (seq.width > 1 || seq.height > 1) {
      w_.patchOffsetHere(f.poseKeys, f.start);
      where_.set(placeKey("posekeys", {s}), w_.size());
      for (float key : seq.poseKeys.value_or(defaultPoseKeys(seq))) w_.f32(key);
    }
    if (!seq.activityModifiers.empty()) {
      w_.patchOffsetHere(f.modifiers, f.start);
      where_.set(placeKey("modifiers", {s}), w_.size());
      for (const auto& name : seq.activityModifiers) pool_.reference(w_, w_.size(), name);
    }
    if (!seq.keyValues.empty()) {
      w_.patchOffsetHere(f.keyValues, f.start);
      where_.set(placeKey("seqkeyvalues", {s}), w_.size());
      w_.cstring(seq.keyValues);
      w_.alignTo(4);
    }
    std::vector<float> weights =
        seq.weights.empty() ? std::vector<float>(d_.bones.size(), 1.0f) : seq.weights;
    auto [list, added] = weightLists.try_emplace(floatBits(weights), w_.size());
    if (added) {
      for (float weight : weights) w_.f32(weight);
    }
    where_.set(placeKey("weightlist", {s}), list->second);
    w_.patchOffset(f.weights, f.start, list->second);
  }

  static std::vector<float> defaultPoseKeys(const Sequence& seq) {
    std::vector<float> keys;
    for (int32_t n : {seq.width, seq.height}) {
      for (int32_t i = 0; i < n; ++i)
        keys.push_back(n > 1 ? static_cast<float>(i) / static_cast<float>(n - 1) : 0);
    }
    return keys;
  }

  void writeEvent(const Event& event) {
    size_t start = w_.size();
    w_.f32(event.cycle);
    w_.i32(event.id);
    w_.i32(event.type.value_or(event.name.empty() ? 0 : kNamedEventType));
    w_.fixedString(event.options, 64);
    if (event.name.empty()) {
      w_.i32(0);
    } else {
      pool_.reference(w_, start, event.name);
    }
    expectRecordSize(w_, start, 80, "event");
  }

  void writeAutoLayer(const AutoLayer& layer) {
    w_.i16(layer.sequence);
    w_.i16(layer.pose);
    w_.i32(layer.flags);
    w_.f32(layer.start);
    w_.f32(layer.peak);
    w_.f32(layer.tail);
    w_.f32(layer.end);
  }

  void writeBodyParts() {
    beginTable(kBodyParts, d_.bodyParts.size(), "bodyparts");
    std::vector<PendingOffset> models;
    int32_t base = 1;
    for (size_t b = 0; b < d_.bodyParts.size(); ++b) {
      const BodyPart& part = d_.bodyParts[b];
      size_t start = w_.size();
      where_.set(placeKey("bodypart", {b}), start);
      pool_.reference(w_, start, part.name);
      w_.i32(static_cast<int32_t>(part.models.size()));
      w_.i32(part.base.value_or(base));
      models.push_back({w_.reserveI32(), start});
      base *= std::max<int32_t>(1, static_cast<int32_t>(part.models.size()));
    }
    for (size_t b = 0; b < d_.bodyParts.size(); ++b) {
      w_.patchOffsetHere(models[b].field, models[b].base);
      std::vector<PendingOffset> meshes;
      for (size_t m = 0; m < d_.bodyParts[b].models.size(); ++m) {
        meshes.push_back(writeSubModel(b, m));
      }
      for (size_t m = 0; m < meshes.size(); ++m) {
        w_.patchOffsetHere(meshes[m].field, meshes[m].base);
        size_t meshCount = d_.bodyParts[b].models[m].meshes.size();
        for (size_t k = 0; k < meshCount; ++k) writeMesh(b, m, k, meshes[m].base);
        FlexWriter flexes(d_, w_, pool_, where_);
        for (size_t k = 0; k < meshCount; ++k) flexes.writeMeshFlexes(b, m, k, where_.at(placeKey("mesh", {b, m, k})));
      }
    }
  }

  PendingOffset writeSubModel(size_t b, size_t m) {
    const SubModel& model = d_.bodyParts[b].models[m];
    const VertexRange& range = plan_.models[b][m];
    size_t start = w_.size();
    where_.set(placeKey("model", {b, m}), start);
    w_.fixedString(model.name, 64);
    w_.i32(0);  // type
    w_.f32(boundingRadius(range));
    w_.i32(static_cast<int32_t>(model.meshes.size()));
    PendingOffset meshes{w_.reserveI32(), start};
    w_.i32(static_cast<int32_t>(range.count));
    w_.i32(static_cast<int32_t>(range.first * 48));
    w_.i32(static_cast<int32_t>(range.first * 16));
    w_.zeros(16);  // attachments, eyeballs
    w_.zeros(8);   // run-time vertex data
    w_.zeros(32);
    expectRecordSize(w_, start, 148, "sub-model");
    return meshes;
  }

  float boundingRadius(const VertexRange& range) const {
    float radius = 0;
    for (size_t i = 0; i < range.count; ++i)
      radius = std::max(radius, length(plan_.vertices[range.first + i]->position));
    return radius;
  }

  void writeMesh(size_t b, size_t m, size_t k, size_t modelStart) {
    const Mesh& mesh = d_.bodyParts[b].models[m].meshes[k];
    const VertexRange& range = plan_.meshes[b][m][k];
    size_t start = w_.size();
    where_.set(placeKey("mesh", {b, m, k}), start);
    w_.i32(mesh.material);
    w_.patchOffset(w_.reserveI32(), start, modelStart);
    w_.i32(static_cast<int32_t>(range.count));
    w_.i32(static_cast<int32_t>(range.first - plan_.models[b][m].first));
    w_.zeros(8);  // flexes
    w_.i32(mesh.materialType);
    w_.i32(mesh.materialParam);
    w_.i32(static_cast<int32_t>(k));
    w_.vec3(center(range));
    w_.i32(0);  // run-time vertex data
    for (int32_t count : range.lodCounts) w_.i32(count);
    w_.zeros(32);
    expectRecordSize(w_, start, 116, "mesh");
  }

  Vector3 center(const VertexRange& range) const {
    Vector3 sum;
    for (size_t i = 0; i < range.count; ++i) sum = sum + plan_.vertices[range.first + i]->position;
    return range.count ? sum * (1.0f / static_cast<float>(range.count)) : sum;
  }

  void writePoseParameters() {
    beginTable(kPoseParameters, d_.poseParameters.size(), "poseparams");
    for (size_t i = 0; i < d_.poseParameters.size(); ++i) {
      const PoseParameter& param = d_.poseParameters[i];
      size_t start = w_.size();
      where_.set(placeKey("poseparam", {i}), start);
      pool_.reference(w_, start, param.name);
      w_.i32(param.flags);
      w_.f32(param.start);
      w_.f32(param.end);
      w_.f32(param.loop);
    }
  }

  void writeIkChains() {
    beginTable(kIkChains, d_.ikChains.size(), "ikchains");
    std::vector<PendingOffset> links;
    for (size_t c = 0; c < d_.ikChains.size(); ++c) {
      const IkChain& chain = d_.ikChains[c];
      size_t start = w_.size();
      where_.set(placeKey("ikchain", {c}), start);
      pool_.reference(w_, start, chain.name);
      w_.i32(chain.linkType);
      w_.i32(static_cast<int32_t>(chain.links.size()));
      links.push_back({w_.reserveI32(), start});
    }
    for (size_t c = 0; c < d_.ikChains.size(); ++c) {
      w_.patchOffsetHere(links[c].field, links[c].base);
      for (size_t l = 0; l < d_.ikChains[c].links.size(); ++l) {
        where_.set(placeKey("iklink", {c, l}), w_.size());
        w_.i32(d_.ikChains[c].links[l].bone);
        w_.vec3(d_.ikChains[c].links[l].kneeDirection);
        w_.zeros(12);
      }
    }
  }

  void writeIncludes() {
    beginTable(kIncludes, d_.includes.size(), "includes");
    for (size_t i = 0; i < d_.includes.size(); ++i) {
      size_t start = w_.size();
      where_.set(placeKey("include", {i}), start);
      pool_.reference(w_, start, d_.includes[i].label);
      pool_.reference(w_, start, d_.includes[i].fileName);
    }
  }

  void writeMaterials() {
    beginTable(kTextures, d_.textures.size(), "textures");
    for (size_t t = 0; t < d_.textures.size(); ++t) {
      size_t start = w_.size();
      where_.set(placeKey("texture", {t}), start);
      pool_.reference(w_, start, d_.textures[t]);
      w_.zeros(60);  // flags, used and run-time fields
    }
    beginTable(kTextureDirs, d_.textureDirs.size(), "texturedirs");
    for (const auto& dir : d_.textureDirs) pool_.reference(w_, 0, dir);

    std::vector<std::vector<int16_t>> families = d_.skinFamilies;
    if (families.empty()) families.emplace_back();
    size_t width = d_.textures.size();
    if (!d_.skinFamilies.empty()) {
      width = 0;
      for (const auto& row : families) width = std::max(width, row.size());
    }
    w_.patchI32(kSkinRefCount, static_cast<int32_t>(width));
    beginTable(kSkinFamilies, families.size(), "skintable");
    for (const auto& row : families) {
      for (size_t j = 0; j < width; ++j) w_.i16(j < row.size() ? row[j] : static_cast<int16_t>(j));
    }
  }

  void writeKeyValues() {
    if (d_.keyValues.empty()) return;
    where_.set("keyvalues", w_.size());
    w_.patchOffsetHere(kKeyValues, 0);
    w_.patchI32(kKeyValues + 4, static_cast<int32_t>(d_.keyValues.size() + 1));
    w_.cstring(d_.keyValues);
  }

  void writeSecondaryTables() {
    if (!secondary_) return;
    if (!d_.presets.empty()) {
      w_.alignTo(4);
      where_.set("presets", w_.size());
      w_.patchI32(*secondary_ + kPresets, static_cast<int32_t>(d_.presets.size()));
      w_.patchOffsetHere(*secondary_ + kPresets + 4, *secondary_);
      for (const BodyGroupPreset& preset : d_.presets) {
        pool_.reference(w_, w_.size(), preset.name);
        w_.i32(preset.value);
        w_.i32(preset.mask);
      }
    }
    if (d_.linearBoneTable) writeLinearBones();
  }

  // The bone defaults once more, one array per field.
  void writeLinearBones() {
    w_.alignTo(4);
    size_t start = w_.size();
    where_.set("linearbones", start);
    w_.patchOffsetHere(*secondary_ + kLinearBones, *secondary_);
    w_.i32(static_cast<int32_t>(d_.bones.size()));
    std::array<size_t, 9> fields{};
    for (auto& field : fields) field = w_.reserveI32();
    w_.zeros(24);
    std::vector<Matrix3x4> poseToBone = defaultPoseToBone(d_.bones);
    auto column = [&](size_t n, auto&& put) {
      w_.patchOffsetHere(fields[n], start);
      for (size_t i = 0; i < d_.bones.size(); ++i) put(d_.bones[i], i);
    };
    column(0, [&](const Bone& b, size_t) { w_.i32(b.flags); });
    column(1, [&](const Bone& b, size_t) { w_.i32(b.parent); });
    column(2, [&](const Bone& b, size_t) { w_.vec3(b.position); });
    column(3, [&](const Bone& b, size_t) { w_.quat(boneQuaternion(b)); });
    column(4, [&](const Bone& b, size_t) { w_.euler(boneEuler(b)); });
    column(5, [&](const Bone& b, size_t i) { w_.matrix(b.poseToBone.value_or(poseToBone[i])); });
    column(6, [&](const Bone& b, size_t) { w_.vec3(b.positionScale); });
    column(7, [&](const Bone& b, size_t) { w_.vec3(b.rotationScale); });
    column(8, [&](const Bone& b, size_t) { w_.quat(b.alignment); });
  }

  const Description& d_;
  const VertexPlan& plan_;
  ByteWriter w_;
  StringPool pool_;
  OffsetMap where_;
  std::optional<size_t> secondary_;
  std::map<int32_t, std::vector<uint8_t>> blocks_;  // animation block file data by block number
  std::vector<std::tuple<std::string, int32_t, size_t>> aniWhere_;  // key, block, offset in it
};

}  // namespace

Quaternion boneQuaternion(const Bone& bone) {
  if (bone.quaternion) return *bone.quaternion;
  if (bone.euler) return angleQuaternion(toQAngle(*bone.euler));
  return {};
}

RadianEuler boneEuler(const Bone& bone) {
  if (bone.euler) return *bone.euler;
  if (bone.quaternion) return toRadianEuler(quaternionAngles(*bone.quaternion));
  return {};
}

std::vector<Matrix3x4> defaultPoseToBone(const std::vector<Bone>& bones) {
  std::vector<Matrix3x4> world;
  std::vector<Matrix3x4> inverse;
  for (size_t i = 0; i < bones.size(); ++i) {
    Matrix3x4 local = quaternionMatrix(boneQuaternion(bones[i]), bones[i].position);
    int32_t parent = bones[i].parent;
    bool chained = parent >= 0 && static_cast<size_t>(parent) < i;
    world.push_back(chained ? world[static_cast<size_t>(parent)] * local : local);
    inverse.push_back(invertRigid(world.back()));
  }
  return inverse;
}

WrittenModel writeModelFile(const Description& description, const VertexPlan& plan) {
  ModelWriter writer(description, plan);
  WrittenFile mdl = writer.write();
  return {std::move(mdl), writer.animBlockFile()};
}

}  // namespace zv::mdlforge
