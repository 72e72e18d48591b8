// The inspection commands end to end: describe, doc, layout and dict, run as a user runs them,
// their output read back as data.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <fstream>
#include <string>
#include <vector>

#include "tool_run.h"

namespace {

using Output = vetext_test::ToolOutput;
using vetext_test::ReadWholeFile;

class InspectCli : public vetext_test::ToolTest {
 protected:
  // Runs a command that must succeed.
  Output Ok(const std::vector<std::string>& args, const std::string& input = "") {
    Output o = Run(args, input);
    EXPECT_EQ(o.rc, 0) << o.err;
    return o;
  }
  rapidjson::Document JsonOf(const std::vector<std::string>& args, const std::string& input = "") {
    const std::string out = Ok(args, input).out;
    rapidjson::Document d;
    d.Parse(out.c_str(), out.size());
    EXPECT_FALSE(d.HasParseError()) << out.substr(0, 200);
    return d;
  }
};

TEST_F(InspectCli, DescribeListsTheElevenParametersWithLabelsAndDefaults) {
  rapidjson::Document d = JsonOf({"describe", "--json"});
  EXPECT_STREQ(d["name"].GetString(), "Text");
  EXPECT_STREQ(d["category"].GetString(), "Video");
  const auto& params = d["params"];
  ASSERT_EQ(params.Size(), 11u);
  // The checkbox's row label is blank; the text beside its box stands in.
  EXPECT_STREQ(params[6]["label"].GetString(), "Uniform Scale");
  // Horizontal Scale starts disabled because Uniform Scale starts on; only the checkbox asks
  // for change notification and cannot be animated.
  EXPECT_EQ(params[5]["uiFlags"].GetInt(), 0x20);
  EXPECT_EQ(params[6]["flags"].GetInt(), 0x42);

  Output table = Ok({"describe"});
  EXPECT_NE(table.out.find("Anchor Point"), std::string::npos);
  EXPECT_NE(table.out.find("25 .. 400"), std::string::npos);
}

TEST_F(InspectCli, ADocumentBlockReadsBackAndSurvivesItsDictionaryForm) {
  Ok({"doc", "--text", "Grüße 𝄞", "--size", "33", "--box", "300x200", "--block", "in.block"});
  // An 8-byte count, then that many bytes of UTF-16.
  const std::string block = ReadWholeFile(Path("in.block"));
  ASSERT_GE(block.size(), 8u);
  uint64_t count = 0;
  for (int i = 7; i >= 0; --i) count = count << 8 | uint8_t(block[i]);
  EXPECT_EQ(count + 8, block.size());
  rapidjson::Document d = JsonOf({"doc", "--block-in", "in.block"});
  EXPECT_EQ(d["mTextParam"]["mTextRuns"][0]["mStyleParam"]["mFontSize"].GetDouble(), 33.0);

  std::ofstream(Path("doc.dict"), std::ios::binary)
      << Ok({"dict", "from-doc", "--block", "in.block"}).out;
  Ok({"dict", "to-doc", "--block", "out.block", "doc.dict"});
  EXPECT_EQ(block, ReadWholeFile(Path("out.block")));
}

TEST_F(InspectCli, LayoutPrintsOneRecordPerVisibleGlyphAndDrawsAnSvg) {
  rapidjson::Document d = JsonOf({"layout", "--text", "A B", "--size", "50"});
  const auto& chars = d["mCharacters"];
  ASSERT_EQ(chars.Size(), 2u);                                 // the space draws nothing
  EXPECT_DOUBLE_EQ(chars[0]["mFontSize"].GetDouble(), 200.0);  // oversampled four times
  EXPECT_LT(chars[0]["mOriginX"].GetDouble(), chars[1]["mOriginX"].GetDouble());
  EXPECT_LT(d["mLeft"].GetDouble(), d["mRight"].GetDouble());
  EXPECT_FALSE(d["mTextInABox"].GetBool());
  Ok({"layout", "--text", "A B", "--svg", "a.svg"});
  std::string svg = ReadWholeFile(Path("a.svg"));
  EXPECT_NE(svg.find("<svg"), std::string::npos);
  EXPECT_NE(svg.find("</svg>"), std::string::npos);
}

TEST_F(InspectCli, DictEncodesAndDecodesATreeBothWays) {
  const std::string tree =
      R"json({"Name":{"/":"Body"},"List":[1,-2,0.5,"s(x)",true],"Inner":{"K":3}})json";
  Output text = Ok({"dict", "encode", "--precision", "2"}, tree);
  EXPECT_NE(text.out.find("/Name /Body"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find(".5"), std::string::npos);
  EXPECT_TRUE(text.out.ends_with(">>")) << "the dictionary's bytes and nothing after them";
  rapidjson::Document d = JsonOf({"dict", "decode"}, text.out);
  EXPECT_STREQ(d["Name"]["/"].GetString(), "Body");
  EXPECT_EQ(d["List"][1].GetInt(), -2);
  EXPECT_DOUBLE_EQ(d["List"][2].GetDouble(), 0.5);
  EXPECT_STREQ(d["List"][3].GetString(), "s(x)");
  EXPECT_EQ(d["Inner"]["K"].GetInt(), 3);

  std::ofstream(Path("tree.json")) << tree;
  std::ofstream(Path("tree.bin"), std::ios::binary)
      << Ok({"dict", "encode", "--binary", "tree.json"}).out;
  EXPECT_EQ(JsonOf({"dict", "decode", "--binary", "tree.bin"})["Inner"]["K"].GetInt(), 3);
}

}  // namespace
