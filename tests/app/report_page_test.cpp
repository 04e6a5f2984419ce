// The report page's data: totals of a small batch, messages grouped by kind (file names
// and numbers taken out), and names of any bytes kept inside the page's strings.

#include <gtest/gtest.h>

#include "app/report_page.h"

namespace zv::app {
namespace {

ModelReport model(size_t index, std::string input, std::string status, std::vector<std::string> warnings,
                  std::vector<std::string> errors = {}) {
  ModelReport m;
  m.index = index;
  m.input = std::move(input);
  m.status = std::move(status);
  m.warnings = std::move(warnings);
  m.errors = std::move(errors);
  return m;
}

size_t occurrences(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++n;
  return n;
}

TEST(ReportPage, MessageKindsTakeOutFileNamesAndNumbers) {
  EXPECT_EQ(messageKind("Material \"models/props/crate01.qmt\" was found under no texture directory\n"),
            "Material %s was found under no texture directory");
  EXPECT_EQ(messageKind("C_ZV_MDL_Import::ExtractMeshes(1902): \"/lib/a b.mdl\" has no usable strip file; no mesh files are written"),
            "C_ZV_MDL_Import::ExtractMeshes(%d): %s has no usable strip file; no mesh files are written");
  EXPECT_EQ(messageKind("Unable to write out/a/b_refs/mesh/body.dmx: disk full"),
            "Unable to write %s: disk full");
  EXPECT_EQ(messageKind("Animation 12 has -3.5 frames at offset 0x1F0, see crate.mdl."),
            "Animation %d has %d frames at offset %d, see %s.");
  // Digits inside a word are part of it; two messages differing only in numbers are one kind.
  EXPECT_EQ(messageKind("dx90 strips of lod2"), "dx90 strips of lod2");
  EXPECT_EQ(messageKind("Bone 7 of 12 is lost"), messageKind("Bone 3 of 40 is lost"));
  EXPECT_NE(messageKind("Bone 7 is lost"), messageKind("Bone 7 is found"));
  EXPECT_EQ(messageKind(""), "");
  EXPECT_EQ(messageKind("\"unclosed"), "\"unclosed");
}

TEST(ReportPage, TotalsAndGroupsOfASmallBatch) {
  RunReport report;
  report.models = {
      model(0, "a.mdl", "converted", {"Material \"x.qmt\" was found under no texture directory\n",
                                      "Material \"y.qmt\" was found under no texture directory\n"}),
      model(1, "b.mdl", "failed", {}, {"b.mdl: truncated at offset 12\n"}),
      model(2, "c.mdl", "converted", {"Material \"z.qmt\" was found under no texture directory\n", "Bone 4 renamed\n"}),
      model(3, "d.mdl", "skipped", {}),
      model(4, "e.mdl", "failed", {}, {"e.mdl: truncated at offset 99\n"}),
  };
  report.models[0].outputs = {{"a.qmdl", 100}, {"a_refs.txt", 20}};
  report.models[3].outputs = {{"d.qmdl", 5}};
  RunTotals t = totalsOf(report);
  EXPECT_EQ(t.converted, 2u);
  EXPECT_EQ(t.failed, 2u);
  EXPECT_EQ(t.skipped, 1u);
  EXPECT_EQ(t.files, 3u);
  EXPECT_EQ(t.bytes, 125u);

  std::vector<MessageGroup> groups = groupMessages(report);
  ASSERT_EQ(groups.size(), 3u);
  EXPECT_EQ(groups[0].kind, "Material %s was found under no texture directory");
  EXPECT_EQ(groups[0].count, 3u);
  EXPECT_FALSE(groups[0].error);
  EXPECT_EQ(groups[0].models, (std::vector<size_t>{0, 2}));  // each model once
  EXPECT_EQ(groups[1].kind, "%s: truncated at offset %d");
  EXPECT_TRUE(groups[1].error);
  EXPECT_EQ(groups[1].models, (std::vector<size_t>{1, 4}));
  EXPECT_EQ(groups[2].kind, "Bone %d renamed");
  EXPECT_EQ(groups[2].count, 1u);

  // The same text as a warning and as an error is two kinds.
  report.models[3].errors = {"Bone 9 renamed"};
  EXPECT_EQ(groupMessages(report).size(), 4u);
}

TEST(ReportPage, NamesOfAnyBytesStayInsideThePagesStrings) {
  RunReport report;
  report.outputRoot = "out";
  std::string odd = "models/</script><b onclick=\"x\">&amp;'\xFF\xE9.mdl";
  report.models = {model(0, odd, "failed", {}, {odd + " is broken </script>\n"})};
  report.models[0].thumbnail = "elsewhere/run_files/0123.png";
  report.models[0].outputs = {{"m/a&b.qmdl", 1}};
  std::string page = reportPage(report, {"1.2.3<", "-o \"out\" <x>", 1.5}, PagePaths::of("reports/run.html"));
  // Only the page's own two script elements close.
  EXPECT_EQ(occurrences(page, "</script>"), 2u);
  EXPECT_EQ(occurrences(page, "<b onclick"), 0u);
  EXPECT_EQ(occurrences(page, "&amp;'"), 0u);
  EXPECT_NE(page.find("\\u003c/script\\u003e\\u003cb onclick=\\\"x\\\"\\u003e\\u0026amp;'\\udcff\\udce9.mdl"), std::string::npos);
  EXPECT_NE(page.find("zv_mdl_import 1.2.3&lt;</title>"), std::string::npos);
  // The picture is linked beside the page; outputs relative to it.
  EXPECT_NE(page.find("\"run_files/0123.png\""), std::string::npos);
  EXPECT_NE(page.find("\"../out/m/a\\u0026b.qmdl\""), std::string::npos);
  // Nothing is fetched from elsewhere.
  EXPECT_EQ(occurrences(page, "http"), occurrences(page, "http-equiv"));
  EXPECT_EQ(occurrences(page, " src="), 0u);
}

TEST(ReportPage, PagePathsOfAFile) {
  PagePaths here = PagePaths::of("run.html");
  EXPECT_EQ(here.folder, ".");
  EXPECT_EQ(here.filesFolder, "run_files");
  EXPECT_EQ(here.picturePath("a.png"), "run_files/a.png");
  PagePaths there = PagePaths::of("C:\\reports\\night.v2.html");
  EXPECT_EQ(there.folder, "C:/reports");
  EXPECT_EQ(there.pageName, "night.v2.html");
  EXPECT_EQ(there.pictureLink("a.png"), "night.v2_files/a.png");
  EXPECT_EQ(there.picturePath("a.png"), "C:/reports/night.v2_files/a.png");
}

}  // namespace
}  // namespace zv::app
