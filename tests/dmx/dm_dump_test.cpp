#include "dmx/dm_dump.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "dmx/dm_serializer.h"
#include "dmx_test_trees.h"
#include "support/test_support.h"

namespace zv::dmx {
namespace {

using namespace std::string_literals;
using testing::mustSave;

DmDocument readBack(const std::vector<uint8_t>& bytes) {
  Result<DmDocument> doc = readDmx(ByteView(bytes));
  EXPECT_TRUE(doc.ok()) << (doc ? "" : doc.message());
  return doc ? std::move(doc).value() : DmDocument{};
}

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
    DmBinary blob(20);
    for (size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<uint8_t>(i);
    root->setBinary("blob", blob);
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

TEST(DumpDmx, PrintsTheTreeOnceWithBackReferences) {
  SampleTree sample;
  EXPECT_EQ(dumpDmx(readBack(mustSave(*sample.root))), kSampleDump);
}

TEST(DumpDmx, DeepElementsArePrintedApartAndEveryElementOnce) {
  DmElementTree tree;
  CDmElement* root = tree.create("DmElement", "root");
  root->addElement("next", "DmeLink", "a")->addElement("next", "DmeLink", "b")->setInt("last", 1);
  DmDumpOptions options;
  options.maxDepth = 1;
  EXPECT_EQ(dumpDmx(readBack(mustSave(*root)), options),
            "<!-- dmx encoding binary_seqids 9 format dmx 22 -->\n"
            "prefix: none\n"
            "elements: 3\n"
            "[0] DmElement \"root\"\n"
            "  next element:\n"
            "    [1] DmeLink \"a\"\n"
            "      next element -> [2] DmeLink \"b\"\n"
            "not printed above:\n"
            "[2] DmeLink \"b\"\n"
            "  last int = 1\n");
}

TEST(FormatDmValue, EveryValueTypeHasAReadableForm) {
  testing::EveryTypeTree t;
  auto text = [&](const char* name) { return formatDmValue(*t.root->find(name)); };
  EXPECT_EQ(text("int"), "= -7");
  EXPECT_EQ(text("float"), "= 1.5");
  EXPECT_EQ(text("bool"), "= true");
  EXPECT_EQ(text("string"), "= \"text in the table\"");
  EXPECT_EQ(text("binary"), "= [4 bytes] 00 01 02 ff");
  EXPECT_EQ(text("time"), "= 1.2345");
  EXPECT_EQ(text("color"), "= (1 2 3 4)");
  EXPECT_EQ(text("vector2"), "= (1 2)");
  EXPECT_EQ(text("qangle"), "= (10 20 30)");
  EXPECT_EQ(text("quaternion"), "= (0 0 0.70710677 0.70710677)");
  EXPECT_EQ(text("matrix"), "= (-7.5 -6.5 -5.5 -4.5 -3.5 -2.5 -1.5 -0.5 0.5 1.5 2.5 3.5 4.5 5.5 6.5 7.5)");
  EXPECT_EQ(text("uint64"), "= 81985529216486895");
  EXPECT_EQ(text("uint8"), "= 200");
  EXPECT_EQ(text("bool_array"), "[3] = true, false, true");
  EXPECT_EQ(text("string_array"), "[3] = \"a\", \"\", \"inline only\"");
  EXPECT_EQ(text("time_array"), "[2] = 0.0000, -1.0000");
  EXPECT_EQ(text("uint8_array"), "[3] = 0, 127, 255");
  EXPECT_EQ(text("matrix_array_empty"), "[0]");
  EXPECT_EQ(text("element"), "");
}

// Runs a command; its exit status and everything it printed.
std::pair<int, std::string> run(const std::string& command) {
  std::string output;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return {-1, output};
  std::array<char, 4096> chunk;
  size_t got;
  while ((got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0) output.append(chunk.data(), got);
  int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(DmxDumpTool, PrintsAWrittenFileAndFailsOnABrokenOne) {
  zv::testing::TempDir dir;
  SampleTree sample;
  std::vector<uint8_t> bytes = mustSave(*sample.root);
  zv::testing::writeBytes(dir.file("sample.dmx"), bytes);
  auto [status, output] = run(std::string(ZV_DMXDUMP_PATH) + " '" + dir.file("sample.dmx") + "'");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(output, kSampleDump);

  bytes.resize(bytes.size() - 3);
  zv::testing::writeBytes(dir.file("cut.dmx"), bytes);
  std::tie(status, output) = run(std::string(ZV_DMXDUMP_PATH) + " '" + dir.file("cut.dmx") + "'");
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("cut.dmx: DMX: unexpected end of data"), std::string::npos) << output;

  std::tie(status, output) = run(std::string(ZV_DMXDUMP_PATH) + " '" + dir.file("missing.dmx") + "'");
  EXPECT_EQ(status, 1);
  EXPECT_NE(output.find("cannot read"), std::string::npos) << output;
}

TEST(IndependentReader, AcceptsEveryTypeInBothVariants) {
  std::filesystem::path reader = zv::testing::sharedDir() / "tools" / "dmxread.py";
  if (zv::testing::sharedDir().empty() || !std::filesystem::exists(reader)) GTEST_SKIP() << "no shared tools";
  if (run("python3 -c 'pass'").first != 0) GTEST_SKIP() << "no python3";
  zv::testing::TempDir dir;
  testing::EveryTypeTree t;
  for (const char* encoding : {"binary", "binary_seqids"}) {
    zv::testing::writeBytes(dir.file("every.dmx"), mustSave(*t.root, encoding));
    auto [status, output] = run("python3 '" + reader.string() + "' '" + dir.file("every.dmx") + "' --dump");
    EXPECT_EQ(status, 0) << output;
    EXPECT_NE(output.find("prefix: [('anim_frameRate', 30.0)"), std::string::npos) << output;
    EXPECT_NE(output.find("elements: 2"), std::string::npos) << output;
    EXPECT_NE(output.find("vector3_array_empty : vector3_array = []"), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace zv::dmx
