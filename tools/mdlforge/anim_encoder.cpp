#include "mdlforge/anim_encoder.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "base/strings.h"
#include "mdlforge/byte_writer.h"

namespace zv::mdlforge {
namespace {

constexpr float kOmittedScale = 4.3162985e-5f;  // about 1 / 23168

// Per-bone flags of the frame-packed form.
constexpr uint8_t kFrameRotation48 = 0x08, kFrameRotationOmitted = 0x80, kConstantRotation48 = 0x02,
                  kConstantRotationOmitted = 0x40;
constexpr uint8_t kFramePositionHalf = 0x04, kConstantPositionHalf = 0x01, kFramePositionFloat = 0x10,
                  kConstantPositionFloat = 0x20;

uint16_t packUnit(float value, double middle, double range, uint32_t max) {
  double packed = std::nearbyint(double(value) * range + middle);
  return uint16_t(std::clamp(packed, 0.0, double(max)));
}

// The value of frame f of a per-frame list; a short list holds its last value.
template <class T>
T atFrame(const std::vector<T>& values, int32_t f) {
  if (values.empty()) return T{};
  return values[std::min(size_t(std::max(f, 0)), values.size() - 1)];
}

// ---- Run-length form -------------------------------------------------------------------

bool hasChannel(const ValueChannel& c) { return !c.frames.empty() || c.runs.has_value(); }

std::vector<uint8_t> channelBytes(const ValueChannel& channel, int32_t first, int32_t last) {
  std::vector<ValueRun> runs;
  if (channel.runs) {
    runs = *channel.runs;
  } else {
    std::vector<int16_t> values;
    for (int32_t f = first; f <= last; ++f) values.push_back(atFrame(channel.frames, f));
    runs = packRuns(values);
  }
  ByteWriter w;
  for (const ValueRun& run : runs) {
    w.u8(uint8_t(run.values.size()));
    w.u8(run.total);
    for (int16_t v : run.values) w.i16(v);
  }
  return w.take();
}

uint8_t trackFlags(const RleTrack& t) {
  if (t.flags) return *t.flags;
  uint8_t flags = 0;
  if (t.rawPosition) flags |= 0x01;
  if (t.rawRotation) flags |= t.rawRotation64 ? 0x20 : 0x02;
  if (t.position) flags |= 0x04;
  if (t.rotation) flags |= 0x08;
  if (t.delta) flags |= 0x10;
  return flags;
}

// Writes one group of three channel offsets (relative to the group) and returns the
// channels' data, which the caller appends after every group of the record.
Status writeGroup(ByteWriter& w, const std::array<ValueChannel, 3>& channels, size_t dataAt, int32_t first,
                  int32_t last, std::vector<uint8_t>& data) {
  size_t group = w.size();
  for (const ValueChannel& channel : channels) {
    if (!hasChannel(channel)) {
      w.i16(0);
      continue;
    }
    int64_t offset = int64_t(dataAt + data.size()) - int64_t(group);
    if (offset > INT16_MAX) return Error{"a bone record's channels do not fit its 16-bit offsets"};
    w.i16(int16_t(offset));
    std::vector<uint8_t> bytes = channelBytes(channel, first, last);
    data.insert(data.end(), bytes.begin(), bytes.end());
  }
  return {};
}

Result<std::vector<uint8_t>> encodeRecord(const RleTrack& t, int32_t first, int32_t last, bool lastRecord) {
  ByteWriter w;
  w.u8(t.bone);
  w.u8(trackFlags(t));
  w.i16(0);  // next, patched below
  if (t.rawRotation) {
    if (t.rawRotation64) {
      uint64_t q = packQuaternion64(*t.rawRotation);
      for (int shift = 0; shift < 64; shift += 16) w.u16(uint16_t(q >> shift));
    } else {
      for (uint16_t word : packQuaternion48(*t.rawRotation)) w.u16(word);
    }
  }
  if (t.rawPosition) {
    for (int i = 0; i < 3; ++i) w.u16(packHalf((*t.rawPosition)[i]));
  }
  // The channel data follows every group of offsets.
  size_t dataAt = w.size() + (t.rotation ? 6 : 0) + (t.position ? 6 : 0);
  std::vector<uint8_t> data;
  for (const auto* group : {&t.rotation, &t.position}) {
    if (*group && !writeGroup(w, **group, dataAt, first, last, data)) return Error{format("bone %d: its channels do not fit 16-bit offsets", t.bone)};
  }
  w.raw(data);
  std::vector<uint8_t> bytes = w.take();
  if (!lastRecord) {
    if (bytes.size() > size_t(INT16_MAX)) return Error{format("bone %d: its record is too long for a 16-bit offset", t.bone)};
    poke<int16_t>(bytes, 2, int16_t(bytes.size()));
  }
  return bytes;
}

Result<std::vector<uint8_t>> encodeRunLength(const std::vector<RleTrack>& tracks, int32_t first, int32_t last) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i < tracks.size(); ++i) {
    auto record = encodeRecord(tracks[i], first, last, i + 1 == tracks.size());
    if (!record) return record.error();
    out.insert(out.end(), record->begin(), record->end());
  }
  return out;
}

// ---- Frame-packed form -------------------------------------------------------------------

uint8_t packedFlags(const FramePackedBone& bone) {
  if (bone.flags) return *bone.flags;
  static constexpr uint8_t kRotation[] = {0, kFrameRotation48, kFrameRotationOmitted, kConstantRotation48,
                                          kConstantRotationOmitted};
  static constexpr uint8_t kPosition[] = {0, kFramePositionHalf, kConstantPositionHalf, kFramePositionFloat,
                                          kConstantPositionFloat};
  return kRotation[size_t(bone.rotationForm)] | kPosition[size_t(bone.positionForm)];
}

bool isFrameRotation(PackedRotation f) { return f == PackedRotation::Frame48 || f == PackedRotation::FrameOmitted; }
bool isFramePosition(PackedPosition f) { return f == PackedPosition::FrameHalf || f == PackedPosition::FrameFloat; }

void writeRotation(ByteWriter& w, PackedRotation form, const Quaternion& q) {
  bool omitted = form == PackedRotation::FrameOmitted || form == PackedRotation::ConstantOmitted;
  for (uint16_t word : omitted ? packQuaternion48Omitted(q) : packQuaternion48(q)) w.u16(word);
}

void writePosition(ByteWriter& w, PackedPosition form, const Vector3& p) {
  bool half = form == PackedPosition::FrameHalf || form == PackedPosition::ConstantHalf;
  for (int i = 0; i < 3; ++i) half ? w.u16(packHalf(p[i])) : w.f32(p[i]);
}

// One bone's items of one stream: the constants (frame < 0) or frame f.
void writeItems(ByteWriter& w, const FramePackedBone& bone, int32_t frame) {
  bool constants = frame < 0;
  if (bone.rotationForm != PackedRotation::None && isFrameRotation(bone.rotationForm) != constants)
    writeRotation(w, bone.rotationForm, atFrame(bone.rotations, constants ? 0 : frame));
  if (bone.positionForm != PackedPosition::None && isFramePosition(bone.positionForm) != constants)
    writePosition(w, bone.positionForm, atFrame(bone.positions, constants ? 0 : frame));
}

std::vector<uint8_t> encodeFramePacked(const std::vector<FramePackedBone>& bones, int32_t first, int32_t last) {
  ByteWriter w;
  size_t constantsField = w.reserveI32();
  size_t framesField = w.reserveI32();
  size_t bytesPerFrameField = w.reserveI32();
  w.zeros(12);
  for (const FramePackedBone& bone : bones) w.u8(packedFlags(bone));
  w.alignTo(4);
  w.patchOffsetHere(constantsField, 0);
  for (const FramePackedBone& bone : bones) writeItems(w, bone, -1);
  w.alignTo(4);
  w.patchOffsetHere(framesField, 0);
  size_t framesStart = w.size();
  for (int32_t f = first; f <= last; ++f) {
    for (const FramePackedBone& bone : bones) writeItems(w, bone, f);
  }
  size_t frames = size_t(last - first + 1);
  w.patchI32(bytesPerFrameField, int32_t((w.size() - framesStart) / frames));
  return w.take();
}

}  // namespace

uint16_t packHalf(float value) {
  constexpr float kRebias = 1.925929944387236e-34f;  // 2^-112
  uint32_t bits = std::bit_cast<uint32_t>(std::fabs(value) * kRebias);
  uint32_t rounded = (bits + 0x1000) >> 13;
  uint16_t magnitude = uint16_t(std::min<uint32_t>(rounded, 0x7C00));  // beyond the range: infinity
  return std::signbit(value) ? uint16_t(magnitude | 0x8000) : magnitude;
}

std::array<uint16_t, 3> packQuaternion48(const Quaternion& q) {
  uint16_t c = packUnit(q.z, 16384, 16384.5, 0x7FFF);
  if (q.w < 0) c |= 0x8000;
  return {packUnit(q.x, 32768, 32768.5, 0xFFFF), packUnit(q.y, 32768, 32768.5, 0xFFFF), c};
}

std::array<uint16_t, 3> packQuaternion48Omitted(const Quaternion& q) {
  const float component[4] = {q.x, q.y, q.z, q.w};
  size_t omitted = 0;
  for (size_t k = 1; k < 4; ++k) {
    if (std::fabs(component[k]) > std::fabs(component[omitted])) omitted = k;
  }
  size_t first = (omitted + 1) % 4;
  std::array<uint16_t, 3> out;
  for (size_t k = 0; k < 3; ++k) out[k] = packUnit(component[(first + k) % 4], 16384, 1.0 / kOmittedScale, 0x7FFF);
  if (first & 2) out[0] |= 0x8000;
  if (first & 1) out[1] |= 0x8000;
  if (component[omitted] < 0) out[2] |= 0x8000;
  return out;
}

uint64_t packQuaternion64(const Quaternion& q) {
  auto field = [](float v) {
    double packed = std::nearbyint(double(v) * 1048576.5 + 1048576.0);
    return uint64_t(std::clamp(packed, 0.0, double((1 << 21) - 1)));
  };
  return field(q.x) | field(q.y) << 21 | field(q.z) << 42 | (q.w < 0 ? uint64_t{1} << 63 : 0);
}

std::vector<ValueRun> packRuns(const std::vector<int16_t>& values) {
  std::vector<ValueRun> runs;
  size_t i = 0;
  while (i < values.size()) {
    ValueRun run{1, {values[i++]}};
    while (i < values.size() && run.total < 255) {
      if (values[i] == run.values.back()) {
        // The run ends with the frames that keep its last value.
        while (i < values.size() && values[i] == run.values.back() && run.total < 255) {
          ++run.total;
          ++i;
        }
        break;
      }
      run.values.push_back(values[i++]);
      ++run.total;
    }
    runs.push_back(std::move(run));
  }
  return runs;
}

Result<std::vector<uint8_t>> encodeTracks(const AnimationTracks& tracks, int32_t first, int32_t last) {
  last = std::max(first, last);
  if (tracks.framePacked) return encodeFramePacked(*tracks.framePacked, first, last);
  return encodeRunLength(tracks.rle, first, last);
}

std::vector<std::pair<int32_t, int32_t>> sectionFrames(int32_t frames, int32_t perSection) {
  int32_t lastFrame = std::max(frames, 1) - 1;
  int32_t count = std::max(frames, 0) / perSection + 2;
  std::vector<std::pair<int32_t, int32_t>> sections;
  for (int32_t k = 0; k + 1 < count; ++k) {
    int32_t start = std::min(k * perSection, lastFrame);
    sections.emplace_back(start, std::min(start + perSection, lastFrame));
  }
  sections.emplace_back(lastFrame, lastFrame);
  return sections;
}

}  // namespace zv::mdlforge
