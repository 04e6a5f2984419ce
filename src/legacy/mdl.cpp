#include "legacy/mdl.h"

#include <cmath>

#include "base/strings.h"
#include "legacy/flex_reader.h"
#include "legacy/record_reader.h"

namespace zv::legacy {
namespace {

// Record sizes of the model header file.
constexpr size_t kBoneSize = 216;
constexpr size_t kBodyPartSize = 16;
constexpr size_t kSubModelSize = 148;
constexpr size_t kMeshSize = 116;
constexpr size_t kTextureSize = 64;
constexpr size_t kAnimDescSize = 100;
constexpr size_t kMovementSize = 44;
constexpr size_t kSequenceSize = 212;
constexpr size_t kEventSize = 80;
constexpr size_t kAutoLayerSize = 24;
constexpr size_t kIkLockSize = 32;
constexpr size_t kAttachmentSize = 92;
constexpr size_t kHitboxSetSize = 12;
constexpr size_t kHitboxSize = 68;
constexpr size_t kIkChainSize = 16;
constexpr size_t kIkLinkSize = 28;
constexpr size_t kPoseParamSize = 20;
constexpr size_t kIncludeSize = 8;
constexpr size_t kAnimBlockSize = 8;
constexpr size_t kPresetSize = 12;
constexpr size_t kJiggleSize = 120;
constexpr size_t kSecondaryHeaderSize = 44;  // the fields read; real files reserve more
constexpr int32_t kJiggleProcedure = 5;
constexpr int32_t kMaxNamedEntries = 64;

std::string indexed(std::string_view what, size_t index) { return format("%.*s[%zu]", int(what.size()), what.data(), index); }

class MdlParser {
 public:
  MdlParser(MdlFile& out, RecordReader& reader) : out_(out), r_(reader) {}

  // What every later stage needs (header, bones, the tables meshes are built from) fails
  // the model; every other table costs only itself, record by record where it can.
  bool run() {
    auto header = r_.record(0, kMdlHeaderSize, "model header");
    if (!header) return false;
    h_ = *header;
    if (!readHeader()) return false;
    readSecondaryHeader();
    readBones();
    readBodyParts();
    readTextures();
    readTextureDirs();
    if (r_.failed()) return false;
    r_.optional("the skin table", [&] { readSkins(); });
    r_.optional("the animation block table", [&] { readAnimBlocks(); });
    readAnimations();
    readSequences();
    readAttachments();
    readHitboxSets();
    readIkChains();
    readPoseParams();
    readIncludes();
    readFlexes();
    r_.optional("the key-value text", [&] { out_.keyValues = readText(0, h_.i32(312), h_.i32(316), "key-value text"); });
    r_.optional("the surface property", [&] {
      out_.surfaceProp = r_.string(0, h_.i32(308), "surface property name").value_or("");
    });
    out_.notes = r_.notes();
    return !r_.failed();
  }

 private:
  bool readHeader() {
    MdlHeader& hd = out_.header;
    hd.id = h_.i32(0);
    hd.version = h_.i32(4);
    if (hd.id != kMdlId) {
      r_.fail(format("not a model header file (id 0x%08x)", static_cast<uint32_t>(hd.id)));
      return false;
    }
    if (hd.version < kMinMdlVersion || hd.version > kMaxMdlVersion) {
      r_.fail(format("model version %d is not supported (versions %d to %d are)", hd.version, kMinMdlVersion,
                     kMaxMdlVersion));
      return false;
    }
    hd.checksum = h_.i32(8);
    hd.name = h_.fixedString(12, 64);
    hd.length = h_.i32(76);
    hd.eyePosition = h_.vec3(80);
    hd.illuminationPosition = h_.vec3(92);
    hd.hullMin = h_.vec3(104);
    hd.hullMax = h_.vec3(116);
    hd.viewMin = h_.vec3(128);
    hd.viewMax = h_.vec3(140);
    hd.flags = h_.i32(152);
    hd.skinReferenceCount = h_.i32(220);
    hd.skinFamilyCount = h_.i32(224);
    hd.mass = h_.f32(328);
    hd.contents = h_.i32(332);
    hd.rootLod = h_.get<uint8_t>(377);
    // Before version 48 the tail of the header is unused and may hold anything.
    hd.secondaryHeaderOffset = hd.version >= 48 ? h_.i32(400) : 0;
    return true;
  }

  // count and offset fields of the header, both from file start.
  std::optional<Table> headerTable(size_t countField, size_t offsetField, size_t stride, std::string_view what) {
    return r_.table(0, h_.i32(offsetField), h_.i32(countField), stride, what);
  }

  // The long name, the linear bone table and the body group presets each cost only
  // themselves: without the long name the header's name serves.
  void readSecondaryHeader() {
    int32_t offset = out_.header.secondaryHeaderOffset;
    if (offset == 0) return;
    std::optional<Record> sh;
    r_.optional("the secondary header", [&] {
      sh = offset > 0 ? r_.record(size_t(offset), kSecondaryHeaderSize, "secondary header")
                      : r_.fail(format("secondary header offset %d is negative", offset));
    });
    if (!sh) return;
    r_.optional("the long name", [&] {
      out_.longName = r_.string(sh->position(), sh->i32(20), "secondary header long name").value_or("");
    });
    r_.optional("the linear bone table", [&] { readLinearBones(*sh); });
    std::optional<Table> presets;
    r_.optional("the body group presets", [&] {
      presets = r_.table(sh->position(), sh->i32(40), sh->i32(36), kPresetSize, "body group preset table");
    });
    for (size_t i = 0; presets && i < presets->count; ++i) {
      std::string where = indexed("body group preset", i);
      r_.optional(where, [&] {
        Record p = *r_.record(presets->at(i), kPresetSize, "body group preset");
        std::string name = r_.string(p.position(), p.i32(0), where + ".name").value_or("");
        if (!r_.failed()) out_.bodyGroupPresets.push_back({name, p.i32(4), p.i32(8)});
      });
    }
  }

  void readLinearBones(const Record& sh) {
    int32_t relative = sh.i32(16);
    if (relative == 0) return;
    auto table = r_.table(sh.position(), relative, 1, 40, "linear bone table");
    if (!table) return;
    Record t = *r_.record(table->start, 40, "linear bone table");
    int64_t count = h_.i32(156);
    LinearBoneTable linear;
    auto vectors = [&](size_t field, std::string_view what, std::vector<Vector3>& into) {
      if (auto arr = r_.table(t.position(), t.i32(field), count, 12, what)) {
        for (size_t i = 0; i < arr->count; ++i) into.push_back(r_.record(arr->at(i), 12, what)->vec3(0));
      }
    };
    auto quats = [&](size_t field, std::string_view what, std::vector<Quaternion>& into) {
      if (auto arr = r_.table(t.position(), t.i32(field), count, 16, what)) {
        for (size_t i = 0; i < arr->count; ++i) into.push_back(r_.record(arr->at(i), 16, what)->quat(0));
      }
    };
    vectors(12, "linear bone positions", linear.positions);
    quats(16, "linear bone quaternions", linear.quaternions);
    vectors(28, "linear bone position scales", linear.positionScales);
    quats(36, "linear bone alignments", linear.alignments);
    if (!r_.failed()) out_.linearBones = std::move(linear);
  }

  void readBones() {
    auto bones = headerTable(156, 160, kBoneSize, "bone table");
    if (!bones) return;
    for (size_t i = 0; i < bones->count && !r_.failed(); ++i) {
      Record b = *r_.record(bones->at(i), kBoneSize, "bone");
      std::string where = indexed("bone", i);
      Bone bone;
      bone.name = r_.string(b.position(), b.i32(0), where + ".name").value_or("");
      bone.parent = b.i32(4);
      bone.position = b.vec3(32);
      bone.quaternion = b.quat(44);
      Vector3 rotation = b.vec3(60);
      bone.rotation = {rotation.x, rotation.y, rotation.z};
      bone.positionScale = b.vec3(72);
      bone.rotationScale = b.vec3(84);
      bone.poseToBone = b.mat3x4(96);
      bone.alignment = b.quat(144);
      bone.flags = b.get<uint32_t>(160);
      bone.proceduralType = b.i32(164);
      bone.contents = b.i32(180);
      bone.recordOffset = b.position();
      // Hit boxes and jiggle settings can do without these; the skeleton cannot do without the bone.
      r_.optional(where + "'s surface property", [&] {
        bone.surfaceProp = r_.string(b.position(), b.i32(176), where + ".surface property").value_or("");
      });
      if (bone.proceduralType == kJiggleProcedure && b.i32(168) != 0) {
        r_.optional(where + "'s jiggle settings", [&] { bone.jiggle = readJiggle(b, where); });
      }
      out_.bones.push_back(std::move(bone));
    }
    checkBoneParents();
  }

  std::optional<JiggleParams> readJiggle(const Record& bone, const std::string& where) {
    auto table = r_.table(bone.position(), bone.i32(168), 1, kJiggleSize, where + ".jiggle");
    if (!table) return std::nullopt;
    Record j = *r_.record(table->start, kJiggleSize, "jiggle bone");
    JiggleParams params;
    params.flags = j.i32(0);
    for (size_t k = 0; k < params.values.size(); ++k) params.values[k] = j.f32(4 + 4 * k);
    return params;
  }

  // A parent must be an earlier-or-later bone of the table, never the bone itself, and
  // the chain of parents must end: later stages walk it. Every parent index is checked
  // before any chain is walked, since a walk visits the parents of later bones too.
  void checkBoneParents() {
    const auto& bones = out_.bones;
    for (size_t i = 0; i < bones.size(); ++i) {
      int32_t parent = bones[i].parent;
      if (parent < -1 || parent >= int32_t(bones.size()) || parent == int32_t(i)) {
        r_.fail(format("bone[%zu] at offset %zu has parent %d, outside -1..%zu", i, bones[i].recordOffset, parent,
                       bones.size() - 1));
        return;
      }
    }
    for (size_t i = 0; i < bones.size(); ++i) {
      size_t steps = 0;
      for (int32_t p = bones[i].parent; p >= 0; p = bones[size_t(p)].parent) {
        if (++steps > bones.size()) {
          r_.fail(format("bone[%zu] at offset %zu: its parent chain loops", i, bones[i].recordOffset));
          return;
        }
      }
    }
  }

  void readBodyParts() {
    auto parts = headerTable(232, 236, kBodyPartSize, "body part table");
    if (!parts) return;
    for (size_t i = 0; i < parts->count && !r_.failed(); ++i) {
      Record p = *r_.record(parts->at(i), kBodyPartSize, "body part");
      std::string where = indexed("bodypart", i);
      BodyPart part;
      part.name = r_.string(p.position(), p.i32(0), where + ".name").value_or("");
      part.base = p.i32(8);
      auto models = r_.table(p.position(), p.i32(12), p.i32(4), kSubModelSize, where + ".model table");
      for (size_t m = 0; models && m < models->count && !r_.failed(); ++m) {
        part.models.push_back(readSubModel(*r_.record(models->at(m), kSubModelSize, "sub-model"),
                                           where + indexed(".model", m)));
      }
      out_.bodyParts.push_back(std::move(part));
    }
  }

  SubModel readSubModel(const Record& m, const std::string& where) {
    SubModel model;
    model.name = m.fixedString(0, 64);
    model.type = m.i32(64);
    model.boundingRadius = m.f32(68);
    model.vertexCount = m.i32(80);
    model.vertexIndex = m.i32(84);
    model.tangentIndex = m.i32(88);
    model.eyeballCount = m.i32(100);
    auto meshes = r_.table(m.position(), m.i32(76), m.i32(72), kMeshSize, where + ".mesh table");
    for (size_t k = 0; meshes && k < meshes->count && !r_.failed(); ++k) {
      Record r = *r_.record(meshes->at(k), kMeshSize, "mesh");
      Mesh mesh;
      mesh.material = r.i32(0);
      mesh.vertexCount = r.i32(8);
      mesh.vertexOffset = r.i32(12);
      mesh.materialType = r.i32(24);
      mesh.materialParam = r.i32(28);
      mesh.meshId = r.i32(32);
      mesh.center = r.vec3(36);
      mesh.recordOffset = r.position();
      for (size_t l = 0; l < 8; ++l) mesh.lodVertexCounts[l] = r.i32(52 + 4 * l);
      model.meshes.push_back(mesh);
    }
    return model;
  }

  void readTextures() {
    auto textures = headerTable(204, 208, kTextureSize, "texture table");
    for (size_t i = 0; textures && i < textures->count && !r_.failed(); ++i) {
      Record t = *r_.record(textures->at(i), kTextureSize, "texture");
      out_.textures.push_back({r_.string(t.position(), t.i32(0), indexed("texture", i) + ".name").value_or(""),
                               t.i32(4)});
    }
  }

  void readTextureDirs() {
    auto dirs = headerTable(212, 216, 4, "texture directory table");
    for (size_t i = 0; dirs && i < dirs->count && !r_.failed(); ++i) {
      int32_t offset = r_.record(dirs->at(i), 4, "texture directory")->i32(0);
      out_.textureDirs.push_back(r_.string(0, offset, indexed("texture directory", i)).value_or(""));
    }
  }

  void readSkins() {
    int64_t refs = out_.header.skinReferenceCount;
    int64_t families = out_.header.skinFamilyCount;
    if (refs < 0 || families < 0) {
      r_.fail(format("skin table has invalid counts %lld x %lld", static_cast<long long>(families),
                     static_cast<long long>(refs)));
      return;
    }
    auto table = r_.table(0, h_.i32(228), refs * families, 2, "skin table");
    if (!table || table->count == 0) return;
    for (int64_t f = 0; f < families; ++f) {
      std::vector<int16_t> row;
      for (int64_t j = 0; j < refs; ++j) row.push_back(r_.record(table->at(size_t(f * refs + j)), 2, "skin")->get<int16_t>(0));
      out_.skins.push_back(std::move(row));
    }
  }

  void readAnimBlocks() {
    if (h_.i32(352) == 0) return;
    out_.animBlockName = r_.string(0, h_.i32(348), "animation block file name").value_or("");
    auto blocks = headerTable(352, 356, kAnimBlockSize, "animation block table");
    for (size_t i = 0; blocks && i < blocks->count; ++i) {
      Record b = *r_.record(blocks->at(i), kAnimBlockSize, "animation block");
      out_.animBlocks.push_back({b.i32(0), b.i32(4)});
    }
  }

  // A broken animation keeps its place, since sequences name animations by index, and
  // carries why it cannot be decoded.
  void readAnimations() {
    std::optional<Table> anims;
    r_.optional("the animation table", [&] { anims = headerTable(180, 184, kAnimDescSize, "animation table"); });
    for (size_t i = 0; anims && i < anims->count; ++i) {
      Record a = *r_.record(anims->at(i), kAnimDescSize, "animation description");
      std::string where = indexed("animation", i);
      AnimDesc anim;
      anim.recordOffset = a.position();
      if (!r_.optional(where, [&] { readAnimation(a, anim, where); })) anim.error = r_.notes().back();
      out_.animations.push_back(std::move(anim));
    }
  }

  void readAnimation(const Record& a, AnimDesc& anim, const std::string& where) {
    anim.name = r_.string(a.position(), a.i32(4), where + ".name").value_or("");
    anim.fps = a.f32(8);
    anim.flags = a.i32(12);
    anim.frameCount = a.i32(16);
    anim.block = a.i32(52);
    anim.dataOffset = a.i32(56);
    anim.framesPerSection = a.i32(84);
    auto moves = r_.table(a.position(), a.i32(24), a.i32(20), kMovementSize, where + ".movement table");
    for (size_t k = 0; moves && k < moves->count; ++k) {
      Record m = *r_.record(moves->at(k), kMovementSize, "movement");
      anim.movements.push_back({m.i32(0), m.i32(4), m.f32(8), m.f32(12), m.f32(16), m.vec3(20), m.vec3(32)});
    }
    readSections(a, anim, where);
    if (anim.block == 0 && anim.frameCount > 0 && !r_.failed() &&
        !offsetFrom(a.position(), anim.dataOffset, r_.file().size())) {
      r_.fail(format("%s at offset %zu: animation data offset %d leaves the file", where.c_str(), a.position(),
                     anim.dataOffset));
    }
  }

  void readSections(const Record& a, AnimDesc& anim, const std::string& where) {
    if (anim.framesPerSection <= 0 || a.i32(80) == 0) return;
    if (anim.frameCount < 0) {
      r_.fail(format("%s has a negative frame count %d", where.c_str(), anim.frameCount));
      return;
    }
    // The compiler stores frames / framesPerSection + 2 sections; the last frame sits in its own.
    int64_t count = int64_t(anim.frameCount) / anim.framesPerSection + 2;
    auto sections = r_.table(a.position(), a.i32(80), count, 8, where + ".section table");
    for (size_t k = 0; sections && k < sections->count; ++k) {
      Record s = *r_.record(sections->at(k), 8, "animation section");
      anim.sections.push_back({s.i32(0), s.i32(4)});
    }
  }

  // Like animations, a broken sequence keeps its place (auto layers name sequences by index).
  void readSequences() {
    std::optional<Table> seqs;
    r_.optional("the sequence table", [&] { seqs = headerTable(188, 192, kSequenceSize, "sequence table"); });
    for (size_t i = 0; seqs && i < seqs->count; ++i) {
      Record s = *r_.record(seqs->at(i), kSequenceSize, "sequence");
      std::string where = indexed("sequence", i);
      SequenceDesc seq;
      if (!r_.optional(where, [&] { seq = readSequence(s, where); })) {
        seq = SequenceDesc{};
        seq.error = r_.notes().back();
      }
      out_.sequences.push_back(std::move(seq));
    }
  }

  SequenceDesc readSequence(const Record& s, const std::string& where) {
    SequenceDesc seq;
    size_t at = s.position();
    seq.name = r_.string(at, s.i32(4), where + ".name").value_or("");
    seq.activityName = r_.string(at, s.i32(8), where + ".activity name").value_or("");
    seq.flags = s.i32(12);
    seq.activityWeight = s.i32(20);
    seq.boundsMin = s.vec3(32);
    seq.boundsMax = s.vec3(44);
    seq.groupSize = {s.i32(68), s.i32(72)};
    seq.paramIndex = {s.i32(76), s.i32(80)};
    seq.paramStart = {s.f32(84), s.f32(88)};
    seq.paramEnd = {s.f32(92), s.f32(96)};
    seq.fadeInTime = s.f32(104);
    seq.fadeOutTime = s.f32(108);
    seq.entryNode = s.i32(112);
    seq.exitNode = s.i32(116);
    seq.nodeFlags = s.i32(120);
    seq.nextSequence = s.i32(136);
    seq.cyclePoseIndex = s.i32(180);
    readEvents(s, seq, where);
    readBlendGrid(s, seq, where);
    readAutoLayers(s, seq, where);
    if (s.i32(156) != 0) {
      auto weights = r_.table(at, s.i32(156), int64_t(out_.bones.size()), 4, where + ".weight list");
      for (size_t k = 0; weights && k < weights->count; ++k) seq.weights.push_back(r_.record(weights->at(k), 4, "weight")->f32(0));
    }
    r_.table(at, s.i32(168), s.i32(164), kIkLockSize, where + ".IK lock table");
    seq.keyValues = readText(at, s.i32(172), s.i32(176), where + ".key values");
    readActivityModifiers(s, seq);
    readAnimTags(s, seq);
    return seq;
  }

  void readEvents(const Record& s, SequenceDesc& seq, const std::string& where) {
    auto events = r_.table(s.position(), s.i32(28), s.i32(24), kEventSize, where + ".event table");
    for (size_t k = 0; events && k < events->count && !r_.failed(); ++k) {
      Record e = *r_.record(events->at(k), kEventSize, "event");
      AnimEvent event;
      event.cycle = e.f32(0);
      event.id = e.i32(4);
      event.type = e.i32(8);
      event.options = e.fixedString(12, 64);
      event.name = r_.string(e.position(), e.i32(76), where + indexed(".event", k) + ".name").value_or("");
      seq.events.push_back(std::move(event));
    }
  }

  // A grid with no cells is a sequence without animation, whatever its index table
  // offset says; every cell must name an animation of this model.
  void readBlendGrid(const Record& s, SequenceDesc& seq, const std::string& where) {
    if (seq.groupSize[0] < 0 || seq.groupSize[1] < 0 || seq.groupSize[0] > 64 || seq.groupSize[1] > 64) {
      r_.fail(format("%s at offset %zu has an invalid blend grid %d x %d", where.c_str(), s.position(),
                     seq.groupSize[0], seq.groupSize[1]));
      return;
    }
    int64_t cells = int64_t(seq.groupSize[0]) * seq.groupSize[1];
    if (cells == 0) return;
    auto grid = r_.table(s.position(), s.i32(60), cells, 2, where + ".animation index table");
    for (size_t k = 0; grid && k < grid->count; ++k) {
      int16_t anim = r_.record(grid->at(k), 2, "animation index")->get<int16_t>(0);
      if (anim < 0 || size_t(anim) >= out_.animations.size()) {
        r_.fail(format("%s at offset %zu: grid cell %zu names animation %d of %zu", where.c_str(), s.position(), k,
                       anim, out_.animations.size()));
        return;
      }
      seq.animIndices.push_back(anim);
    }
    if (s.i32(160) != 0 && (seq.groupSize[0] > 1 || seq.groupSize[1] > 1)) {
      auto keys = r_.table(s.position(), s.i32(160), int64_t(seq.groupSize[0]) + seq.groupSize[1], 4,
                           where + ".pose key table");
      for (size_t k = 0; keys && k < keys->count; ++k) seq.poseKeys.push_back(r_.record(keys->at(k), 4, "pose key")->f32(0));
    }
  }

  void readAutoLayers(const Record& s, SequenceDesc& seq, const std::string& where) {
    auto layers = r_.table(s.position(), s.i32(152), s.i32(148), kAutoLayerSize, where + ".auto layer table");
    for (size_t k = 0; layers && k < layers->count; ++k) {
      Record l = *r_.record(layers->at(k), kAutoLayerSize, "auto layer");
      seq.autoLayers.push_back({l.get<int16_t>(0), l.get<int16_t>(2), l.i32(4), l.f32(8), l.f32(12), l.f32(16), l.f32(20)});
    }
  }

  // Activity modifiers exist only in some files of versions 48 and 49, and anim tags only
  // in some of version 49, in fields that others leave unused; they are read only when
  // everything about them checks out.
  void readActivityModifiers(const Record& s, SequenceDesc& seq) {
    if (out_.header.version < 48 || r_.failed()) return;
    auto names = trustedNames(s.position(), s.i32(184), s.i32(188), 4, 0);
    for (auto& [name, record] : names) seq.activityModifiers.push_back(std::move(name));
  }

  void readAnimTags(const Record& s, SequenceDesc& seq) {
    if (out_.header.version < 49 || r_.failed()) return;
    for (auto& [name, record] : trustedNames(s.position(), s.i32(192), s.i32(196), 12, 8)) {
      seq.animTags.push_back({std::move(name), r_.file().readOr<float>(record + 4, 0)});
    }
  }

  // count records of stride bytes at base + offset, each with a name offset at nameField;
  // every name, with the position of its record, or none when anything is out of place.
  std::vector<std::pair<std::string, size_t>> trustedNames(size_t base, int32_t offset, int32_t count, size_t stride,
                                                          size_t nameField) {
    if (count <= 0 || count > kMaxNamedEntries) return {};
    auto start = offsetFrom(base, offset, r_.file().size());
    if (!start || !r_.file().contains(*start, size_t(count) * stride)) return {};
    std::vector<std::pair<std::string, size_t>> names;
    for (int32_t k = 0; k < count; ++k) {
      size_t record = *start + stride * size_t(k);
      auto at = offsetFrom(record, r_.file().readOr<int32_t>(record + nameField, 0), r_.file().size());
      auto name = at ? r_.file().cstr(*at) : std::nullopt;
      if (!name || name->empty() || !isPrintable(*name)) return {};
      names.emplace_back(std::string(*name), record);
    }
    return names;
  }

  static bool isPrintable(std::string_view text) {
    for (char c : text) {
      if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7e) return false;
    }
    return true;
  }

  std::string readText(size_t base, int32_t relative, int32_t size, const std::string& what) {
    if (relative == 0 || size <= 0) return {};
    auto table = r_.table(base, relative, size, 1, what);
    if (!table) return {};
    auto view = r_.file().sub(table->start, table->count);
    std::string text(reinterpret_cast<const char*>(view->data()), view->size());
    size_t nul = text.find('\0');
    if (nul != std::string::npos) text.resize(nul);
    return text;
  }

  // The records of an optional header table, each decoded by decode(record, where). A
  // broken table costs all of them; a broken record only itself.
  template <class T, class Decode>
  void readOptionalRecords(size_t countField, size_t offsetField, size_t stride, std::string_view table,
                           std::string_view label, std::vector<T>& into, Decode decode) {
    std::optional<Table> records;
    r_.optional(format("the %.*s", int(table.size()), table.data()),
                [&] { records = headerTable(countField, offsetField, stride, table); });
    for (size_t i = 0; records && i < records->count; ++i) {
      std::string where = indexed(label, i);
      r_.optional(where, [&] {
        T item = decode(*r_.record(records->at(i), stride, table), where);
        if (!r_.failed()) into.push_back(std::move(item));
      });
    }
  }

  void readAttachments() {
    readOptionalRecords(240, 244, kAttachmentSize, "attachment table", "attachment", out_.attachments,
                        [&](const Record& a, const std::string& where) {
                          return Attachment{r_.string(a.position(), a.i32(0), where + ".name").value_or(""), a.i32(4),
                                            a.i32(8), a.mat3x4(12)};
                        });
  }

  void readHitboxSets() {
    readOptionalRecords(172, 176, kHitboxSetSize, "hit box set table", "hitboxset", out_.hitboxSets,
                        [&](const Record& s, const std::string& where) {
                          HitboxSet set;
                          set.name = r_.string(s.position(), s.i32(0), where + ".name").value_or("");
                          auto boxes = r_.table(s.position(), s.i32(8), s.i32(4), kHitboxSize, where + ".hit box table");
                          for (size_t k = 0; boxes && k < boxes->count; ++k) {
                            Record b = *r_.record(boxes->at(k), kHitboxSize, "hit box");
                            set.hitboxes.push_back({b.i32(0), b.i32(4), b.vec3(8), b.vec3(20), b.f32(48), b.i32(48)});
                          }
                          return set;
                        });
  }

  void readIkChains() {
    readOptionalRecords(284, 288, kIkChainSize, "IK chain table", "ikchain", out_.ikChains,
                        [&](const Record& c, const std::string& where) {
                          IkChain chain;
                          chain.name = r_.string(c.position(), c.i32(0), where + ".name").value_or("");
                          chain.linkType = c.i32(4);
                          auto links = r_.table(c.position(), c.i32(12), c.i32(8), kIkLinkSize, where + ".link table");
                          for (size_t k = 0; links && k < links->count; ++k) {
                            Record l = *r_.record(links->at(k), kIkLinkSize, "IK link");
                            chain.links.push_back({l.i32(0), l.vec3(4)});
                          }
                          return chain;
                        });
  }

  // Sequences name pose parameters by index, so one whose name is broken keeps its place
  // without a name.
  void readPoseParams() {
    readOptionalRecords(300, 304, kPoseParamSize, "pose parameter table", "poseparam", out_.poseParams,
                        [&](const Record& p, const std::string& where) {
                          PoseParam param{"", p.i32(4), p.f32(8), p.f32(12), p.f32(16)};
                          r_.optional(where + "'s name", [&] {
                            param.name = r_.string(p.position(), p.i32(0), where + ".name").value_or("");
                          });
                          return param;
                        });
  }

  void readIncludes() {
    readOptionalRecords(336, 340, kIncludeSize, "include model table", "include", out_.includes,
                        [&](const Record& e, const std::string& where) {
                          return IncludeModel{r_.string(e.position(), e.i32(0), where + ".label").value_or(""),
                                              r_.string(e.position(), e.i32(4), where + ".file name").value_or("")};
                        });
  }

  // The flex tables, then each mesh's flex records, which name descriptors by index.
  void readFlexes() {
    if (!readFlexTables(r_, h_, out_.flexes)) return;
    for (size_t b = 0; b < out_.bodyParts.size(); ++b) {
      for (size_t m = 0; m < out_.bodyParts[b].models.size(); ++m) {
        for (size_t k = 0; k < out_.bodyParts[b].models[m].meshes.size(); ++k) {
          Mesh& mesh = out_.bodyParts[b].models[m].meshes[k];
          Record record = *r_.record(mesh.recordOffset, kMeshSize, "mesh");
          mesh.flexes = readMeshFlexes(r_, record, mesh.vertexCount, out_.flexes,
                                       format("bodypart[%zu].model[%zu].mesh[%zu]", b, m, k));
        }
      }
    }
  }

  MdlFile& out_;
  RecordReader& r_;
  Record h_;
};

}  // namespace

Result<MdlFile> MdlFile::parse(std::string fileName, std::vector<uint8_t> bytes) {
  MdlFile file;
  file.fileName_ = std::move(fileName);
  file.bytes_ = std::move(bytes);
  RecordReader reader(file.fileName_, ByteView(file.bytes_));
  MdlParser parser(file, reader);
  if (!parser.run()) return Error{reader.error()};
  return file;
}

}  // namespace zv::legacy
