// The tool's document options: parsing on a real CLI::App and the document they build.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "doc_options.h"
#include "document/document_json.h"
#include "engine/kte.h"

namespace {

using vetext_tool::DocumentOptions;

[[maybe_unused]] const int kFontConfig =
    (setenv("FONTCONFIG_FILE", VETEXT_SOURCE_DIR "/fonts/fonts.conf", 0), 0);

vetext::DocumentRecord Build(std::vector<std::string> args) {
  CLI::App app;
  DocumentOptions o;
  vetext_tool::AddDocumentOptions(app, o);
  std::reverse(args.begin(), args.end());
  app.parse(args);
  return vetext_tool::BuildDocument(o);
}

TEST(DocOptions, ColoursBothSpellings) {
  auto c = vetext_tool::ParseColor("#ff8000");
  EXPECT_FLOAT_EQ(c.r, 1.0f);
  EXPECT_FLOAT_EQ(c.g, 128 / 255.0f);
  EXPECT_FLOAT_EQ(c.b, 0.0f);
  c = vetext_tool::ParseColor("0.25,0.5,1");
  EXPECT_FLOAT_EQ(c.r, 0.25f);
  EXPECT_FLOAT_EQ(c.b, 1.0f);
  for (const char* bad :
       {"#ff80", "#ff80001", "#gg0000", "1,2,3", "0.5,0.5", "0.1,0.2,0.3x", "", "-0.1,0,0"})
    EXPECT_THROW(vetext_tool::ParseColor(bad), std::runtime_error) << bad;
}

TEST(DocOptions, NoOptionsGiveTheDefaultDocument) {
  EXPECT_EQ(Build({}), KTE::MakeDefaultDocument()->data);
  EXPECT_EQ(Build({"--default"}), KTE::MakeDefaultDocument()->data);
}

TEST(DocOptions, TextStyleBoxAndAlignment) {
  vetext::DocumentRecord d = Build({"--text",
                                    "H\u00e9llo",
                                    "--font",
                                    "DejaVu Serif",
                                    "--size",
                                    "72",
                                    "--fill",
                                    "#000000",
                                    "--stroke",
                                    "1,0,0",
                                    "--stroke-width",
                                    "3",
                                    "--leading",
                                    "90",
                                    "--tracking",
                                    "50",
                                    "--kerning",
                                    "-10",
                                    "--baseline-shift",
                                    "4",
                                    "--stroke-over-fill",
                                    "--box",
                                    "640x360",
                                    "--align",
                                    "justify LAST center"});
  EXPECT_EQ(d.mTextParam.mWidth, 640);
  EXPECT_EQ(d.mTextParam.mHeight, 360);
  ASSERT_EQ(d.mTextParam.mTextRuns.size(), 1u);
  const vetext::TextRun& r = d.mTextParam.mTextRuns[0];
  EXPECT_EQ(r.mText, u"H\u00e9llo");
  EXPECT_EQ(r.mStyleParam.mFontName, u"DejaVu Serif");
  EXPECT_EQ(r.mStyleParam.mFontSize, 72.0f);
  EXPECT_EQ(r.mStyleParam.mFillRed, 0.0f);
  EXPECT_EQ(r.mStyleParam.mStrokeGreen, 0.0f);
  EXPECT_EQ(r.mStyleParam.mStrokeRed, 1.0f);
  EXPECT_EQ(r.mStyleParam.mStrokeWidth, 3.0f);
  EXPECT_FALSE(r.mStyleParam.mAutoLeading);
  EXPECT_EQ(r.mStyleParam.mLeading, 90.0f);
  EXPECT_EQ(r.mStyleParam.mTracking, 50.0f);
  EXPECT_EQ(r.mStyleParam.mKerning, -10.0f);
  EXPECT_EQ(r.mStyleParam.mBaselineShift, 4.0f);
  EXPECT_FALSE(r.mStyleParam.mFillOverStroke);
  EXPECT_EQ(r.mParaParam.mAlignment, 4u);

  // Style options reach every run of the base; right comes before center in the names.
  vetext::DocumentRecord all = Build({"--size", "10", "--align", "RIGHT align"});
  ASSERT_EQ(all.mTextParam.mTextRuns.size(), 9u);
  for (const auto& run : all.mTextParam.mTextRuns) {
    EXPECT_EQ(run.mStyleParam.mFontSize, 10.0f);
    EXPECT_EQ(run.mParaParam.mAlignment, 1u);
    EXPECT_TRUE(run.mStyleParam.mAutoLeading);
  }
}

TEST(DocOptions, BadValuesAreRefused) {
  EXPECT_THROW(Build({"--align", "Justify All"}), std::runtime_error);  // point text
  EXPECT_THROW(Build({"--align", "middle"}), std::runtime_error);
  EXPECT_THROW(Build({"--size", "0"}), std::runtime_error);
  EXPECT_THROW(Build({"--stroke-width", "-1"}), std::runtime_error);
  EXPECT_THROW(Build({"--box", "10by20"}), CLI::ValidationError);
  EXPECT_THROW(Build({"--fill", "red"}), CLI::ValidationError);
  EXPECT_THROW(Build({"--fill-over-stroke", "--stroke-over-fill"}), CLI::ExcludesError);
}

TEST(DocOptions, FromJsonAndFromBlock) {
  const std::string dir = testing::TempDir();
  const std::string json_path = dir + "/h3_doc.json", block_path = dir + "/h3_doc.bin";
  {
    std::ofstream f(json_path);
    f << R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"a"},{"mText":"b"}],"mWidth":5}})";
  }
  vetext::DocumentRecord from = Build({"--from", json_path, "--size", "20"});
  ASSERT_EQ(from.mTextParam.mTextRuns.size(), 2u);
  EXPECT_EQ(from.mTextParam.mWidth, 5);
  EXPECT_EQ(from.mTextParam.mTextRuns[1].mStyleParam.mFontSize, 20.0f);

  const std::vector<uint8_t> block = vetext::WriteDocumentBlock(from);
  {
    std::ofstream f(block_path, std::ios::binary);
    f.write(reinterpret_cast<const char*>(block.data()), std::streamsize(block.size()));
  }
  EXPECT_EQ(Build({"--block-in", block_path}), from);
  EXPECT_THROW(Build({"--from", json_path, "--block-in", block_path}), CLI::ExcludesError);

  {
    std::ofstream f(json_path);
    f << "{\"mTextParam\":";
  }
  try {
    Build({"--from", json_path});
    FAIL() << "no error";
  } catch (const KTE::Error& e) {
    EXPECT_STREQ(e.what(), "JSON not well-formed");
  }
  std::remove(json_path.c_str());
  std::remove(block_path.c_str());
}

}  // namespace
