// The importer rules on a small file that common importers take, and on variants of it
// that each break one rule; the independent reader must agree on every variant.

#include "dmx/dm_importer_check.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "dmx_test_trees.h"
#include "support/test_support.h"

namespace zv::dmx {
namespace {

using testing::mustRead;
using testing::mustSave;

// One mesh (a triangle, one face set, one joint weight per position, one delta state) and
// one clip with a bound channel.
struct ImportableTree {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  CDmElement* model = tree.create("DmeModel", "model");
  CDmElement* joint = tree.create("DmeJoint", "pelvis");
  CDmElement* data = tree.create("DmeVertexData", "bind");
  CDmElement* material = tree.create("DmeMaterial", "materials/m.qmat");
  CDmElement* faceSet = tree.create("DmeFaceSet", "faceSet");
  CDmElement* clip = tree.create("DmeChannelsClip", "walk");
  CDmElement* channel = tree.create("DmeChannel", "pelvis_p");
  CDmElement* layer = tree.create("DmeVector3LogLayer", "vector3 log");
  CDmElement* delta = tree.create("DmeVertexDeltaData", "smile");

  ImportableTree() {
    root->setElement("skeleton", model);
    root->setElement("model", model);
    CDmElement* transform = joint->addElement("transform", "DmeTransform", "pelvis");
    CDmElement* dag = tree.create("DmeDag", "part");
    CDmElement* mesh = dag->addElement("shape", "DmeMesh", "part");
    model->elementArray("children") = {joint, dag};
    mesh->setElement("currentState", data);
    data->stringArray("vertexFormat") = {"position$0", "normal$0", "blendweights$0", "blendindices$0"};
    data->setInt("jointCount", 1);
    data->vector3Array("position$0") = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    data->intArray("position$0Indices") = {0, 1, 2};
    data->vector3Array("normal$0") = {{0, 0, 1}};
    data->intArray("normal$0Indices") = {0, 0, 0};
    data->floatArray("blendweights$0") = {1, 1, 1};
    data->intArray("blendindices$0") = {0, 0, 0};
    mesh->elementArray("faceSets") = {faceSet};
    faceSet->setElement("material", material);
    material->setString("mtlName", "materials/m.qmat");
    faceSet->intArray("faces") = {0, 1, 2, -1};
    mesh->elementArray("deltaStates") = {delta};
    delta->stringArray("vertexFormat") = {"position$0", "normal$0"};
    delta->vector3Array("position$0") = {{0, 0, 1}};
    delta->intArray("position$0Indices") = {2};
    delta->vector3Array("normal$0") = {{0, 1, 0}};
    delta->intArray("normal$0Indices") = {0};

    CDmElement* list = root->addElement("animationList", "DmeAnimationList", "walk");
    list->elementArray("animations") = {clip};
    clip->addElement("timeFrame", "DmeTimeFrame", "timeFrame")->setTime("duration", DmTime{10000});
    clip->elementArray("channels") = {channel};
    channel->setElement("toElement", transform);
    channel->setString("toAttribute", "position");
    channel->addElement("log", "DmeVector3Log", "vector3 log")->elementArray("layers") = {layer};
    layer->timeArray("times") = {DmTime{0}, DmTime{10000}};
    layer->vector3Array("values") = {{}, {}};
  }
};

struct BrokenRule {
  const char* what;
  std::function<void(ImportableTree&)> breakIt;
  const char* problem;
};

const BrokenRule kBrokenRules[] = {
    {"material without mtlName", [](ImportableTree& t) { t.material->setString("mtlName", ""); },
     "mesh 'part': a face set has no material with a non-empty mtlName"},
    {"face set without material", [](ImportableTree& t) { t.faceSet->setElement("material", nullptr); },
     "mesh 'part': a face set has no material with a non-empty mtlName"},
    {"unnamed material", [](ImportableTree& t) { t.material->setName(""); }, "a DmeMaterial has an empty name"},
    {"unnamed joint", [](ImportableTree& t) { t.joint->setName(""); }, "a DmeJoint has an empty name"},
    {"no normals", [](ImportableTree& t) { t.data->stringArray("vertexFormat") = {"position$0"}; },
     "mesh 'part' lacks normal$0 with its indices"},
    {"normal index past the values", [](ImportableTree& t) { t.data->intArray("normal$0Indices") = {0, 0, 1}; },
     "mesh 'part': normal$0 indices out of range or of another length"},
    {"normal indices shorter", [](ImportableTree& t) { t.data->intArray("normal$0Indices") = {0, 0}; },
     "mesh 'part': normal$0 indices out of range or of another length"},
    {"faces not ended by -1", [](ImportableTree& t) { t.faceSet->intArray("faces") = {0, 1, 2}; },
     "mesh 'part': face list not -1 terminated or past the vertex table"},
    {"corner past the index lists", [](ImportableTree& t) { t.faceSet->intArray("faces") = {0, 1, 3, -1}; },
     "mesh 'part': face list not -1 terminated or past the vertex table"},
    {"weights not one per position", [](ImportableTree& t) { t.data->floatArray("blendweights$0") = {1, 1}; },
     "mesh 'part': weights are not one set of jointCount per position"},
    {"root without skeleton", [](ImportableTree& t) { t.root->setElement("skeleton", nullptr); },
     "root has no skeleton model"},
    {"clip without time frame", [](ImportableTree& t) { t.clip->setElement("timeFrame", nullptr); },
     "clip 'walk' has no time frame with a duration"},
    {"channel bound to scale", [](ImportableTree& t) { t.channel->setString("toAttribute", "scale"); },
     "channel 'pelvis_p' is not bound to a transform with one value per key"},
    {"more keys than values", [](ImportableTree& t) { t.layer->vector3Array("values") = {{}}; },
     "channel 'pelvis_p' is not bound to a transform with one value per key"},
};

// What shape-key importers need of delta states; the independent reader leaves them unchecked.
const BrokenRule kBrokenDeltaRules[] = {
    {"delta without vertexFormat", [](ImportableTree& t) { t.delta->removeAttribute("vertexFormat"); },
     "mesh 'part': delta state 'smile' has no vertexFormat"},
    {"delta field without indices", [](ImportableTree& t) { t.delta->removeAttribute("normal$0Indices"); },
     "mesh 'part': delta state 'smile' lacks normal$0 values or their indices"},
    {"delta field listed but absent",
     [](ImportableTree& t) { t.delta->stringArray("vertexFormat") = {"position$0", "normal$0", "wrinkle$0"}; },
     "mesh 'part': delta state 'smile' lacks wrinkle$0 values or their indices"},
    {"more indices than deltas", [](ImportableTree& t) { t.delta->intArray("position$0Indices") = {2, 1}; },
     "mesh 'part': delta state 'smile' has 1 position$0 values and 2 indices"},
    {"delta index past the positions", [](ImportableTree& t) { t.delta->intArray("position$0Indices") = {3}; },
     "mesh 'part': delta state 'smile' has position$0 indices past the bind state's values"},
    {"negative delta index", [](ImportableTree& t) { t.delta->intArray("normal$0Indices") = {-1}; },
     "mesh 'part': delta state 'smile' has normal$0 indices past the bind state's values"},
    // Wrinkles index the texture coordinates, which this bind state does not have.
    {"wrinkle without texture coordinates",
     [](ImportableTree& t) {
       t.delta->stringArray("vertexFormat") = {"position$0", "normal$0", "wrinkle$0"};
       t.delta->floatArray("wrinkle$0") = {0.5f};
       t.delta->intArray("wrinkle$0Indices") = {0};
     },
     "mesh 'part': delta state 'smile' has wrinkle$0 indices past the bind state's values"},
};

TEST(ImporterProblems, AFileImportersTakeHasNone) {
  ImportableTree tree;
  EXPECT_EQ(importerProblems(mustRead(mustSave(*tree.root))), std::vector<std::string>{});
  EXPECT_EQ(importerProblems(DmDocument{}), std::vector<std::string>{"no elements"});
}

TEST(ImporterProblems, EachBrokenRuleIsNamedOnce) {
  for (const BrokenRule& rule : kBrokenRules) {
    ImportableTree tree;
    rule.breakIt(tree);
    EXPECT_EQ(importerProblems(mustRead(mustSave(*tree.root))), std::vector<std::string>{rule.problem}) << rule.what;
  }
}

TEST(ImporterProblems, EachBrokenDeltaStateRuleIsNamedOnce) {
  for (const BrokenRule& rule : kBrokenDeltaRules) {
    ImportableTree tree;
    rule.breakIt(tree);
    EXPECT_EQ(importerProblems(mustRead(mustSave(*tree.root))), std::vector<std::string>{rule.problem}) << rule.what;
  }
}

// The rules are the independent reader's; it must refuse every variant ours refuses.
TEST(ImporterProblems, TheIndependentReaderAgrees) {
  std::filesystem::path reader = zv::testing::sharedDir() / "tools" / "dmxread.py";
  if (zv::testing::sharedDir().empty() || !std::filesystem::exists(reader) || std::system("python3 -c pass") != 0)
    GTEST_SKIP() << "no python3 or no shared tools";
  zv::testing::TempDir dir;
  auto verdict = [&](const ImportableTree& tree) {
    zv::testing::writeBytes(dir.file("t.dmx"), mustSave(*tree.root));
    return std::system(("python3 '" + reader.string() + "' '" + dir.file("t.dmx") + "' --importer >/dev/null").c_str());
  };
  EXPECT_EQ(verdict(ImportableTree{}), 0);
  for (const BrokenRule& rule : kBrokenRules) {
    ImportableTree tree;
    rule.breakIt(tree);
    EXPECT_NE(verdict(tree), 0) << rule.what;
  }
}

}  // namespace
}  // namespace zv::dmx
