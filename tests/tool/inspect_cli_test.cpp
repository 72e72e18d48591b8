// The inspection commands end to end: describe, doc, layout and dict, run as a user runs them,
// their output read back as data.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

namespace fs = std::filesystem;

using Output = vetext_test::ToolOutput;
using vetext_test::ReadWholeFile;

class InspectCli : public vetext_test::ToolTest {
 protected:
  static rapidjson::Document Json(const std::string& text) {
    rapidjson::Document d;
    d.Parse(text.c_str(), text.size());
    EXPECT_FALSE(d.HasParseError()) << text.substr(0, 200);
    return d;
  }
};

TEST_F(InspectCli, DescribeListsTheElevenParametersWithLabelsAndDefaults) {
  Output o = Run({"describe", "--json"});
  ASSERT_EQ(o.rc, 0) << o.err;
  rapidjson::Document d = Json(o.out);
  EXPECT_STREQ(d["name"].GetString(), "Text");
  EXPECT_STREQ(d["category"].GetString(), "Video");
  // The checkbox's row label is blank; it shows the text beside its box.
  const auto& params = d["params"];
  ASSERT_EQ(params.Size(), 11u);
  const char* labels[] = {
      "Source Text",   "Transform", "Position", "Scale",        "Horizontal Scale",
      "Uniform Scale", "Rotation",  "Opacity",  "Anchor Point", ""};
  for (unsigned i = 1; i < 11; ++i) {
    EXPECT_EQ(params[i]["index"].GetInt(), int(i));
    EXPECT_EQ(params[i]["id"].GetInt(), int(i));
    EXPECT_STREQ(params[i]["label"].GetString(), labels[i - 1]) << "parameter " << i;
  }
  // Horizontal Scale starts disabled because Uniform Scale starts on; only the checkbox asks
  // for change notification and cannot be animated.
  EXPECT_EQ(params[5]["uiFlags"].GetInt(), 0x20);
  EXPECT_EQ(params[6]["flags"].GetInt(), 0x42);
  EXPECT_EQ(params[1]["uiFlags"].GetInt(), 0x2);

  Output table = Run({"describe"});
  ASSERT_EQ(table.rc, 0);
  EXPECT_NE(table.out.find("Anchor Point"), std::string::npos);
  EXPECT_NE(table.out.find("25 .. 400"), std::string::npos);
}

TEST_F(InspectCli, DescribeOfAMissingModuleFailsWithItsPath) {
  Output o = Run({"describe", "--module", "/nonexistent/VEText.so"});
  EXPECT_NE(o.rc, 0);
  EXPECT_NE(o.err.find("/nonexistent/VEText.so"), std::string::npos) << o.err;
}

TEST_F(InspectCli, DocBuildsTheStyledRunAndItsBlockReadsBack) {
  Output o = Run({"doc", "--text", "Hi", "--size", "80", "--fill", "#ff0000", "--stroke-width", "3",
                  "--align", "left align"});
  ASSERT_EQ(o.rc, 0) << o.err;
  rapidjson::Document d = Json(o.out);
  const auto& runs = d["mTextParam"]["mTextRuns"];
  ASSERT_EQ(runs.Size(), 1u);
  EXPECT_STREQ(runs[0]["mText"].GetString(), "Hi");
  const auto& style = runs[0]["mStyleParam"];
  EXPECT_DOUBLE_EQ(style["mFontSize"].GetDouble(), 80.0);
  EXPECT_DOUBLE_EQ(style["mFillRed"].GetDouble(), 1.0);
  EXPECT_DOUBLE_EQ(style["mFillGreen"].GetDouble(), 0.0);
  EXPECT_DOUBLE_EQ(style["mStrokeWidth"].GetDouble(), 3.0);
  EXPECT_EQ(runs[0]["mParaParam"]["mAlignment"].GetUint(), 0u);

  // The block: an 8-byte count, then that many bytes of UTF-16; read back it prints the same.
  ASSERT_EQ(Run({"doc", "--text", "Hi", "--size", "80", "--block", "hi.block"}).rc, 0);
  std::string block = ReadWholeFile(Path("hi.block"));
  ASSERT_GE(block.size(), 8u);
  uint64_t count = 0;
  for (int i = 7; i >= 0; --i) count = count << 8 | uint8_t(block[i]);
  EXPECT_EQ(count + 8, block.size());
  Output again = Run({"doc", "--block-in", "hi.block"});
  ASSERT_EQ(again.rc, 0) << again.err;
  EXPECT_EQ(Json(again.out)["mTextParam"]["mTextRuns"][0]["mStyleParam"]["mFontSize"].GetDouble(),
            80.0);
}

TEST_F(InspectCli, DocRefusesBadValuesWithAMessage) {
  Output bad_colour = Run({"doc", "--text", "x", "--fill", "#zz0000"});
  EXPECT_NE(bad_colour.rc, 0);
  EXPECT_FALSE(bad_colour.err.empty());
  std::ofstream(Path("broken.json")) << "{\"mVersion\": 1, \"mTextParam\": [";
  Output broken = Run({"doc", "--from", "broken.json"});
  EXPECT_NE(broken.rc, 0);
  EXPECT_NE(broken.err.find("JSON not well-formed"), std::string::npos) << broken.err;
}

TEST_F(InspectCli, LayoutPrintsOneRecordPerVisibleGlyphAndDrawsAnSvg) {
  Output o = Run({"layout", "--text", "A B", "--size", "50"});
  ASSERT_EQ(o.rc, 0) << o.err;
  rapidjson::Document d = Json(o.out);
  const auto& chars = d["mCharacters"];
  ASSERT_EQ(chars.Size(), 2u);                                 // the space draws nothing
  EXPECT_DOUBLE_EQ(chars[0]["mFontSize"].GetDouble(), 200.0);  // oversampled four times
  EXPECT_LT(chars[0]["mOriginX"].GetDouble(), chars[1]["mOriginX"].GetDouble());
  EXPECT_LT(d["mLeft"].GetDouble(), d["mRight"].GetDouble());
  EXPECT_FALSE(d["mTextInABox"].GetBool());

  ASSERT_EQ(Run({"layout", "--text", "A B", "--svg", "a.svg"}).rc, 0);
  std::string svg = ReadWholeFile(Path("a.svg"));
  EXPECT_NE(svg.find("<svg"), std::string::npos);
  EXPECT_NE(svg.find("</svg>"), std::string::npos);
}

TEST_F(InspectCli, DictEncodesAndDecodesATreeBothWays) {
  const std::string tree =
      R"json({"Name":{"/":"Body"},"List":[1,-2,0.5,"s(x)",true],"Inner":{"K":3}})json";
  Output text = Run({"dict", "encode", "--precision", "2"}, tree);
  ASSERT_EQ(text.rc, 0) << text.err;
  EXPECT_NE(text.out.find("/Name /Body"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find(".5"), std::string::npos);
  Output back = Run({"dict", "decode"}, text.out);
  ASSERT_EQ(back.rc, 0) << back.err;
  rapidjson::Document d = Json(back.out);
  EXPECT_STREQ(d["Name"]["/"].GetString(), "Body");
  EXPECT_EQ(d["List"][1].GetInt(), -2);
  EXPECT_DOUBLE_EQ(d["List"][2].GetDouble(), 0.5);
  EXPECT_STREQ(d["List"][3].GetString(), "s(x)");
  EXPECT_EQ(d["Inner"]["K"].GetInt(), 3);

  std::ofstream(Path("tree.json")) << tree;
  Output bin = Run({"dict", "encode", "--binary", "tree.json"});
  ASSERT_EQ(bin.rc, 0) << bin.err;
  std::ofstream(Path("tree.bin"), std::ios::binary) << bin.out;
  Output bin_back = Run({"dict", "decode", "--binary", "tree.bin"});
  ASSERT_EQ(bin_back.rc, 0) << bin_back.err;
  EXPECT_EQ(Json(bin_back.out)["Inner"]["K"].GetInt(), 3);
}

TEST_F(InspectCli, DictRefusesMalformedSyntaxAndBadNames) {
  Output unterminated = Run({"dict", "decode"}, "<< /A (abc");
  EXPECT_NE(unterminated.rc, 0);
  EXPECT_FALSE(unterminated.err.empty());
  Output bad_name = Run({"dict", "encode"}, R"({"A":{"/":"has space"}})");
  EXPECT_NE(bad_name.rc, 0);
  EXPECT_FALSE(bad_name.err.empty());
}

TEST_F(InspectCli, ADocumentSurvivesItsDictionaryForm) {
  ASSERT_EQ(
      Run({"doc", "--text", "Grüße 𝄞", "--size", "33", "--box", "300x200", "--block", "in.block"})
          .rc,
      0);
  Output dict = Run({"dict", "from-doc", "--block", "in.block"});
  ASSERT_EQ(dict.rc, 0) << dict.err;
  std::ofstream(Path("doc.dict"), std::ios::binary) << dict.out;
  Output back = Run({"dict", "to-doc", "--block", "out.block", "doc.dict"});
  ASSERT_EQ(back.rc, 0) << back.err;
  EXPECT_EQ(ReadWholeFile(Path("in.block")), ReadWholeFile(Path("out.block")));
}

}  // namespace
