// The tool's document options: parsing on a real CLI::App and the document they build.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "doc_options.h"
#include "document/document_json.h"
#include "engine/kte.h"

namespace {

[[maybe_unused]] const int kFontConfig =
    (setenv("FONTCONFIG_FILE", VETEXT_SOURCE_DIR "/fonts/fonts.conf", 0), 0);

// `args` is split as a shell would, quotes included.
vetext::DocumentRecord Build(const std::string& args) {
  CLI::App app;
  vetext_tool::DocumentOptions o;
  vetext_tool::AddDocumentOptions(app, o);
  app.parse(args, false);
  return vetext_tool::BuildDocument(o);
}

TEST(DocOptions, ColoursBothSpellings) {
  const std::pair<const char*, vetext_tool::Rgb> kGood[] = {{"#ff8000", {1, 128 / 255.0f, 0}},
                                                            {"0.25,0.5,1", {0.25f, 0.5f, 1}}};
  for (const auto& [text, want] : kGood) {
    const vetext_tool::Rgb c = vetext_tool::ParseColor(text);
    EXPECT_EQ(std::tuple(c.r, c.g, c.b), std::tuple(want.r, want.g, want.b)) << text;
  }
  for (const char* bad :
       {"#ff80", "#ff80001", "#gg0000", "1,2,3", "0.5,0.5", "0.1,0.2,0.3x", "", "-0.1,0,0"})
    EXPECT_THROW(vetext_tool::ParseColor(bad), std::runtime_error) << bad;
}

TEST(DocOptions, TextStyleBoxAndAlignment) {
  EXPECT_EQ(Build(""), KTE::MakeDefaultDocument()->data);
  EXPECT_EQ(Build("--default"), KTE::MakeDefaultDocument()->data);

  const vetext::TextRun run{
      u"H\u00e9llo",
      {u"DejaVu Serif", 72, 0, 0, 0, 1, 0, 0, 3, false, 90, -10, 50, 4, false},
      {vetext::kAlignJustifyLastCenter}};
  EXPECT_EQ(Build("--text H\u00e9llo --font 'DejaVu Serif' --size 72 --fill #000000 "
                  "--stroke 1,0,0 --stroke-width 3 --leading 90 --tracking 50 --kerning -10 "
                  "--baseline-shift 4 --stroke-over-fill --box 640x360 "
                  "--align 'justify LAST center'"),
            (vetext::DocumentRecord{1, {{run}, 640, 360}}));

  // Style options reach every run of the base; right comes before center in the names.
  vetext::DocumentRecord all = Build("--size 10 --align 'RIGHT align'");
  ASSERT_EQ(all.mTextParam.mTextRuns.size(), 9u);
  for (const auto& r : all.mTextParam.mTextRuns) {
    EXPECT_EQ(r.mStyleParam.mFontSize, 10.0f);
    EXPECT_EQ(r.mParaParam.mAlignment, vetext::kAlignRight);
    EXPECT_TRUE(r.mStyleParam.mAutoLeading);
  }
}

TEST(DocOptions, BadValuesAreRefused) {
  for (const char* args :
       {"--align 'Justify All'",  // point text
        "--align middle", "--size 0", "--size 1920x1080", "--stroke-width -1", "--leading -1"})
    EXPECT_THROW(Build(args), std::runtime_error) << args;
  EXPECT_THROW(Build("--box 10by20"), CLI::ValidationError);
  EXPECT_THROW(Build("--fill red"), CLI::ValidationError);
  EXPECT_THROW(Build("--fill-over-stroke --stroke-over-fill"), CLI::ExcludesError);
}

TEST(DocOptions, FromJsonAndFromBlock) {
  const std::string json = testing::TempDir() + "/h3_doc.json",
                    block = testing::TempDir() + "/h3_doc.bin";
  auto write = [](const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  };
  write(json,
        R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"a"},{"mText":"b"}],"mWidth":5}})");
  vetext::DocumentRecord from = Build("--from " + json + " --size 20");
  ASSERT_EQ(from.mTextParam.mTextRuns.size(), 2u);
  EXPECT_EQ(from.mTextParam.mWidth, 5);
  EXPECT_EQ(from.mTextParam.mTextRuns[1].mStyleParam.mFontSize, 20.0f);

  const std::vector<uint8_t> bytes = vetext::WriteDocumentBlock(from);
  write(block, std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(Build("--block-in " + block), from);
  EXPECT_THROW(Build("--from " + json + " --block-in " + block), CLI::ExcludesError);

  write(json, "{\"mTextParam\":");
  EXPECT_THROW(Build("--from " + json), KTE::Error);
  std::remove(json.c_str());
  std::remove(block.c_str());
}

}  // namespace
