#include "dmx/dm_dump.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "dmx_test_trees.h"
#include "support/test_support.h"

namespace zv::dmx {
namespace {

using testing::mustRead;
using testing::mustSave;

// A small mesh-like file: nesting, a back-reference, null, a foreign element, the prefix.
struct SampleTree {
  SampleTree() {
    root = tree.create("DmElement", "root");
    root->addElement("$prefix_attribute$", "DmElement", "$prefix_element$")->setFloat("fps", 30.f);
    CDmElement* model = root->addElement("model", "DmeModel", "model");
    model->setBool("visible", true);
    CDmElement* joint = tree.create("DmeJoint", "bone");
    model->addElementArray("children") = {joint, nullptr};
    CDmElement* transform = joint->addElement("transform", "DmeTransform", "bone");
    transform->setVector3("position", {1, 2.5f, -3});
    transform->setQuaternion("orientation", {});
    root->setElement("skeleton", model);
    root->setElement("shape", nullptr);
    root->setElement("ext", elsewhere.create("DmeOther", "other"));
    root->intArray("faces") = {0, 1, 2, -1, 0, 2, 3, -1, 4, 5};
    root->setString("label", "a \"quoted\"\n");
    root->setTime("time", DmTime{-15});
    root->setBinary("blob", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19});
    root->floatArray("empty");
  }
  DmElementTree tree, elsewhere;
  CDmElement* root;
};

constexpr const char* kSampleDump = R"(<!-- dmx encoding binary_seqids 9 format dmx 22 -->
prefix:
  fps float = 30
elements: 4
[0] DmElement "root"
  model element:
    [1] DmeModel "model"
      visible bool = true
      children element_array [2]:
        [2] DmeJoint "bone"
          transform element:
            [3] DmeTransform "bone"
              position vector3 = (1 2.5 -3)
              orientation quaternion = (0 0 0 1)
        null
  skeleton element -> [1] DmeModel "model"
  shape element = null
  ext element -> external {00000005-0000-0000-0000-000000000000}
  faces int_array [10] = 0, 1, 2, -1, 0, 2, 3, -1, ...
  label string = "a \"quoted\"\n"
  time time = -0.0015
  blob binary = [20 bytes] 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f ...
  empty float_array [0]
  $prefix_attribute$ element -> the prefix above
)";

TEST(DumpDmx, DeepElementsArePrintedApartAndEveryElementOnce) {
  SampleTree sample;
  std::string text = dumpDmx(mustRead(mustSave(*sample.root)), {.maxArrayItems = 8, .maxDepth = 1});
  EXPECT_EQ(text.find("[3] DmeTransform"), text.rfind("[3] DmeTransform"));
  EXPECT_TRUE(
      text.ends_with("  $prefix_attribute$ element -> the prefix above\n"
                     "not printed above:\n"
                     "[2] DmeJoint \"bone\"\n"
                     "  transform element:\n"
                     "    [3] DmeTransform \"bone\"\n"
                     "      position vector3 = (1 2.5 -3)\n"
                     "      orientation quaternion = (0 0 0 1)\n"))
      << text;
}

// Runs a program; its exit status and everything it printed, with line ends as "\n"
// (Windows writes text to a stream as "\r\n").
std::pair<int, std::string> run(const std::vector<std::string>& argv) {
  zv::testing::ProgramRun run = zv::testing::runProgram(argv);
  std::string text = run.out + run.err;
  std::erase(text, '\r');
  return {run.status, text};
}

TEST(DmxDumpTool, PrintsAWrittenFileAndFailsOnABrokenOne) {
  zv::testing::TempDir dir;
  SampleTree sample;
  std::vector<uint8_t> bytes = mustSave(*sample.root);
  EXPECT_EQ(dumpDmx(mustRead(bytes)), kSampleDump);
  zv::testing::writeBytes(dir.file("sample.dmx"), bytes);
  EXPECT_EQ(run({ZV_DMXDUMP_PATH, dir.file("sample.dmx")}), std::make_pair(0, std::string(kSampleDump)));
  bytes.resize(bytes.size() - 3);
  zv::testing::writeBytes(dir.file("cut.dmx"), bytes);
  auto [status, output] = run({ZV_DMXDUMP_PATH, dir.file("cut.dmx")});
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("cut.dmx: DMX: unexpected end of data"), std::string::npos) << output;
}

TEST(DmxDumpTool, ImporterModeListsWhatImportersRefuse) {
  zv::testing::TempDir dir;
  SampleTree sample;
  const std::vector<std::string> tool{ZV_DMXDUMP_PATH, "--importer", dir.file("sample.dmx")};
  zv::testing::writeBytes(dir.file("sample.dmx"), mustSave(*sample.root));
  EXPECT_EQ(run(tool), std::make_pair(0, std::string()));
  sample.root->setElement("skeleton", nullptr);
  zv::testing::writeBytes(dir.file("sample.dmx"), mustSave(*sample.root));
  EXPECT_EQ(run(tool), std::make_pair(3, std::string("IMPORTER root has no skeleton model\n")));
}

TEST(IndependentReader, AcceptsEveryTypeInBothVariants) {
  std::filesystem::path reader = zv::testing::sharedDir() / "tools" / "dmxread.py";
  if (zv::testing::sharedDir().empty() || !std::filesystem::exists(reader) ||
      run({"python3", "-c", "pass"}).first != 0)
    GTEST_SKIP() << "no python3 or no shared tools";
  zv::testing::TempDir dir;
  testing::EveryTypeTree t;
  for (const char* encoding : {"binary", "binary_seqids"}) {
    zv::testing::writeBytes(dir.file("every.dmx"), mustSave(*t.root, encoding));
    auto [status, output] = run({"python3", reader.string(), dir.file("every.dmx"), "--dump"});
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("prefix: [('anim_frameRate', 30.0)"), std::string::npos) << output;
    EXPECT_NE(output.find("vector3_array_empty : vector3_array = []"), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace zv::dmx
