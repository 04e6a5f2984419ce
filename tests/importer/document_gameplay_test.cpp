// Gameplay nodes of the model document: hit box sets, IK chains, jiggle bones and the
// snapshot weight lists of the key-value text.

#include <gtest/gtest.h>

#include "base/log.h"
#include "importer_fixture.h"

namespace zv {
namespace {

using testing::bone;
using testing::childrenOf;
using testing::ImportRun;
using testing::listed;
using testing::shown;
using Names = std::vector<std::string>;

// The crate with a chain of bones: root, hip, knee, foot.
mdlforge::Description leggedCrate() {
  mdlforge::Description d = testing::crateModel();
  d.bones = {bone("root", -1), bone("hip", 0), bone("knee", 1), bone("foot", 2)};
  d.bones[1].surfaceProp = "flesh";
  return d;
}

Kv3Value convert(ImportRun& run) {
  EXPECT_TRUE(run.converter.Convert());
  return run.readDocument();
}

std::vector<const Kv3Value*> hitboxes(const Kv3Value& root) {
  std::vector<const Kv3Value*> sets = childrenOf(root, "HitboxSetList");
  return sets.empty() || childrenOf(*sets[0]).empty() ? std::vector<const Kv3Value*>{}
                                                       : childrenOf(*childrenOf(*sets[0])[0]);
}

TEST(QmdlHitboxes, TheRadiusChoosesBoxSphereOrCapsule) {
  mdlforge::Description d = leggedCrate();
  d.hitboxSets = {{"default",
                   {{1, 3, {-1, -1, -1}, {1, 1, 1}, "", {}, 0},   // radius 0: a box
                    {1, 0, {2, 2, 2}, {2, 2, 2}, "", {}, 2},      // equal corners: a sphere
                    {2, 0, {0, 0, 0}, {0, 0, 5}, "", {}, 2},      // a capsule
                    {3, 0, {0, 0, 0}, {1, 1, 1}, "", {}, -1.5f},  // below 1 as an integer: a box
                    {9, 0, {0, 0, 0}, {1, 1, 1}, "", {}, 0.5f}}},  // 0.5 as an integer is large: a capsule
                  {"small head", {}}};
  ImportRun run(d);
  Kv3Value root = convert(run);
  EXPECT_EQ(listed(root, "HitboxSetList", {"name"}), (Names{"default", "small_head"}));
  EXPECT_EQ(shown(hitboxes(root), {"_class", "parent_bone", "surface_property", "group_id"}),
            (Names{"Hitbox hip flesh 3", "HitboxSphere hip flesh 0", "HitboxCapsule knee  0", "Hitbox foot  0",
                   "HitboxCapsule   0"}));  // bone 9 does not exist: no name, no surface
  EXPECT_EQ(shown(hitboxes(root), {"mins", "maxs", "center", "point0", "point1", "radius"}),
            (Names{"[-1, -1, -1] [1, 1, 1] <unset> <unset> <unset> <unset>",
                   "<unset> <unset> [2, 2, 2] <unset> <unset> 2",
                   "<unset> <unset> <unset> [0, 0, 0] [0, 0, 5] 2",
                   "[0, 0, 0] [1, 1, 1] <unset> <unset> <unset> <unset>",
                   "<unset> <unset> <unset> [0, 0, 0] [1, 1, 1] 0.5"}));
}

TEST(QmdlHitboxes, AStaticPropHasThemOnlyWhenItsKeyValuesTurnTheStaticPropOff) {
  const struct {
    int32_t flags;
    const char* keyValues;
    bool expected;
  } cases[] = {
      {0, "", true},
      {0x10, "", false},
      {0x10, "mdlkeyvalue { prop_data { base Wood.Small } }", true},  // allowstatic missing counts as 0
      {0x10, "mdlkeyvalue { prop_data { allowstatic 0 } }", true},
      {0x10, "mdlkeyvalue { prop_data { allowstatic 1 } }", false},
      {0x10, "mdlkeyvalue { other { } }", false},
      {0x10, "mdlkeyvalue { prop_data {", true},    // the end of the text closes the blocks
      {0x10, "mdlkeyvalue { prop_data { \"", false},  // does not read
  };
  for (const auto& c : cases) {
    mdlforge::Description d = leggedCrate();
    d.flags = c.flags;
    d.keyValues = c.keyValues;
    d.hitboxSets = {{"default", {{0, 0, {}, {1, 1, 1}, "", {}, 0}}}};
    ImportRun run(d);
    EXPECT_EQ(hitboxes(convert(run)).size(), c.expected ? 1u : 0u) << c.flags << " " << c.keyValues;
  }
}

TEST(QmdlIkChains, ThreeKnownLinksMakeANestedChainAndAnythingElseIsSaid) {
  mdlforge::Description d = leggedCrate();
  d.ikChains = {{"leg", 0, {{1, {}}, {2, {}}, {3, {}}}},
                {"short", 0, {{1, {}}, {2, {}}}},
                {"odd leg", 1, {{1, {}}, {2, {}}, {3, {}}}},
                {"lost", 0, {{1, {}}, {7, {}}, {3, {}}}}};
  ImportRun run(d);
  LogCapture log;
  Kv3Value root = convert(run);
  const std::string model = "Warning! MDL models/props/crate.mdl mstudioikchain_t ";
  EXPECT_EQ(log.count(model + "short has 2 mstudioiklink_t's expecting 3 - ignoring ik chain\n"), 1u) << log.text();
  EXPECT_EQ(log.count(model + "odd leg has a linktype of 1 expecting 0\n"), 1u);
  EXPECT_EQ(log.count(model + "lost referencing unknown bone  - ignoring ik chain\n"), 1u);
  EXPECT_EQ(listed(root, "IKData", {"name", "end_effector_bone"}), (Names{"leg foot", "odd_leg foot"}));
  // Each joint hangs under the one before it.
  const Kv3Value* chain = childrenOf(*childrenOf(root, "IKData").at(0)).at(0);
  Names joints;
  for (const Kv3Value* node = childrenOf(*chain).at(0); node != nullptr;) {
    joints.push_back(testing::valueOf(*node, "name") + "=" + testing::valueOf(*node, "bone_name"));
    std::vector<const Kv3Value*> next = childrenOf(*node);
    node = next.empty() ? nullptr : next[0];
  }
  EXPECT_EQ(joints, (Names{"hip=hip", "knee=knee", "foot=foot"}));
}

TEST(QmdlJiggleBones, EveryFlagAndTheTwentyNineSettings) {
  mdlforge::Description d = leggedCrate();
  mdlforge::Jiggle flexible{0x01 | 0x04 | 0x20, {}, std::nullopt};
  for (size_t k = 0; k < 29; ++k) flexible.values[k] = float(k) + 0.5f;
  d.bones[2].jiggle = flexible;
  d.bones[3].jiggle = mdlforge::Jiggle{0x02 | 0x08 | 0x10 | 0x40, {}, std::nullopt};
  d.bones[1].jiggle = mdlforge::Jiggle{0, {}, std::nullopt};
  ImportRun run(d);
  Kv3Value root = convert(run);
  EXPECT_EQ(listed(root, "JiggleBoneList",
                   {"name", "jiggle_root_bone", "jiggle_type", "has_yaw_constraint", "has_pitch_constraint",
                    "has_angle_constraint", "has_base_spring", "allow_length_flex"}),
            (Names{"hip_jiggle hip 2 false false false false false",
                   "knee_jiggle knee 1 true false false false true",
                   "foot_jiggle foot 0 false true true true false"}));
  EXPECT_EQ(listed(root, "JiggleBoneList", {"length", "angle_limit", "base_mass", "base_forward_friction"})[1],
            "0.5 8.5 17.5 28.5");
}

TEST(QmdlSnapshotWeights, BothSectionsInOrderAndAnEmptyOneWeighsEverything) {
  mdlforge::Description d = leggedCrate();
  d.keyValues = "mdlkeyvalue { snapshot_weights_upperbody { hip 0.5 \"knee\" 1 } snapshot_weights_all { } }";
  ImportRun run(d);
  EXPECT_EQ(listed(convert(run), "GameDataList", {"game_class", "game_keys"}),
            (Names{"snapshot_weights_all {bonename=, weight=1.0}", "snapshot_weights_upperbody {bonename=hip, weight=0.5}",
                   "snapshot_weights_upperbody {bonename=knee, weight=1}"}));
}

}  // namespace
}  // namespace zv
