// Writing one animation file: its frames decoded one at a time onto the skeleton, with
// root motion, and saved through the output layer.

#include "anim/anim_decoder.h"
#include "base/last_value_memo.h"
#include "base/log.h"
#include "importer/anim_dmx.h"
#include "importer/converter.h"
#include "importer/dmx_output.h"
#include "importer/mesh_extraction.h"
#include "importer/qmdl_paths.h"
#include "output/output.h"

namespace zv {
namespace {

BoneKey matrixKey(const Matrix3x4& m) { return {m.translation(), matrixQuaternion(m)}; }

// A decoded local sample, the input of a bone's key when root motion does not move it.
struct LocalSample {
  RadianEuler rotation;
  Vector3 position;
};

}  // namespace

bool C_ZV_MDL_Import::WriteAnimation(size_t index) {
  std::vector<WrittenFile> written;
  bool saved = writeAnimationFile(index, scratch_, written);
  output_.addWritten(written);
  return saved;
}

bool C_ZV_MDL_Import::writeAnimationFile(size_t index, AnimationScratch& scratch,
                                         std::vector<WrittenFile>& written) const {
  const AnimExportRecord& record = tables_.animations[index];
  SourceModel model = source(record.sourceModel);
  const legacy::AnimDesc& anim = model.mdl.animations[record.sourceAnimation];
  const std::vector<SkeletonBone>& skeleton = tables_.skeleton;

  // Which bone of the animation's model drives each skeleton bone; the others keep the
  // bind pose.
  std::vector<int32_t> driver(skeleton.size(), -1);
  for (size_t b = model.mdl.bones.size(); b-- > 0;) {
    int32_t bone = model.skeletonBone ? (*model.skeletonBone)[b] : int32_t(b);
    if (bone >= 0 && size_t(bone) < driver.size()) driver[size_t(bone)] = int32_t(b);
  }
  // With -YupToZup the skeleton's roots are turned like the bind pose.
  Matrix3x4 turn = settings_.yUpToZUp ? yUpToZUpMatrix() : Matrix3x4::identity();

  // The builder is the thread's, kept from file to file: the files of a model share
  // their skeleton and channels.
  AnimationTreeBuilder& builder = scratch.animation;
  std::string documentPath = relativeToBaseFolder(paths_.document, settings_.outputRoot);
  builder.start(record, {settings_.baseName, skeleton, documentPath});
  anim::AnimDecoder decoder(model.mdl, model.animBlocks, anim);
  std::vector<anim::BonePoseSample> pose;
  std::vector<BoneKey> keys(skeleton.size());
  // Per skeleton bone: a bone that does not move keeps its key without the matrix round trip.
  std::vector<LastValueMemo<LocalSample, BoneKey>> memos(skeleton.size());
  for (int32_t frame = 0; frame < record.frameCount; ++frame) {
    decoder.DecodeAnimFrame(frame, pose);
    anim::RootMotion motion = anim::rootMotionAt(record.movements, float(frame));
    // Root motion moves and turns the bones without a parent in the model's frame.
    Matrix3x4 moved = angleMatrix(QAngle{0, motion.yaw, 0}, motion.position);
    for (size_t j = 0; j < skeleton.size(); ++j) {
      int32_t b = driver[j];
      if (b < 0) {
        keys[j] = {skeleton[j].position, skeleton[j].orientation};
        continue;
      }
      const anim::BonePoseSample& sample = pose[size_t(b)];
      auto key = [&](const LocalSample& s) {
        Matrix3x4 local = angleMatrix(toQAngle(s.rotation), s.position);
        if (model.mdl.bones[size_t(b)].parent < 0) local = moved * local;
        if (skeleton[j].parent < 0) local = turn * local;
        return matrixKey(local);
      };
      LocalSample local{sample.rotation, sample.position};
      // Root motion changes a model root's key every frame, whatever its sample.
      keys[j] = model.mdl.bones[size_t(b)].parent < 0 ? key(local) : memos[j].get(local, key);
    }
    builder.addFrame(keys);
  }
  if (decoder.fault().any()) warning("%s\n", decoder.fault().message().c_str());

  std::string file = record.outputFolder + "/" + safeFileName(record.fileName);
  Status saved = saveDmxFile(output_, file, builder.root(), scratch.buffer, written);
  if (!saved) {
    warning("Unable to save %s: %s\n", file.c_str(), saved.message().c_str());
    return false;
  }
  return true;
}

}  // namespace zv
