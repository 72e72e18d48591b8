// The whole effect through the reference host: placement under each transform parameter, both
// formats, failure statuses, the reference picture, the caches, and concurrent renders.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "document/document_json.h"
#include "host_frames.h"
#include "host_helpers.h"
#include "ink.h"
#include "media_image.h"
#include "params/params.h"
#include "test_layouts.h"
#include "vetext/host/host.h"
#include "vetext/vxcore.h"

namespace {

using namespace vetext;
using vetext_test::Buffer;
using vetext_test::Diff;
using vetext_test::Ink;
using vetext_test::ToBuffer;
using vxhost::Frame;

struct Span {
  std::u16string text;
  float size = 40;
  std::array<float, 3> fill{1, 1, 1}, stroke{0, 0, 0};
  float stroke_width = 0;
};

std::vector<uint8_t> Document(const std::vector<Span>& runs) {
  DocumentRecord doc;
  for (const Span& r : runs) {
    TextRun& tr = doc.mTextParam.mTextRuns.emplace_back();
    tr.mText = r.text;
    StyleParam& s = tr.mStyleParam;
    s.mFontName = u"Liberation Sans", s.mFontSize = r.size;
    s.mFillRed = r.fill[0], s.mFillGreen = r.fill[1], s.mFillBlue = r.fill[2];
    s.mStrokeRed = r.stroke[0], s.mStrokeGreen = r.stroke[1], s.mStrokeBlue = r.stroke[2];
    s.mStrokeWidth = r.stroke_width;
  }
  return WriteDocumentBlock(doc);
}

// Ink: pixels that differ from the uniform background.
Ink InkOf(const Buffer& b, const uint8_t bg[4], int threshold = 24) {
  return vetext_test::InkAgainst(
      b.W, b.H, [&](int32_t x, int32_t y) { return b.at(x, y); },
      [&](int32_t, int32_t) { return bg; }, threshold);
}

class RenderHost : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    host_ = std::make_unique<vxhost::Host>();
    module_ = vetext_test::LoadModule(*host_, vxhost::DefaultModulePath());
    ASSERT_EQ(module_ ? module_->Setup() : -1, 0);
  }
  static void TearDownTestSuite() { module_.reset(), host_.reset(); }
  void SetUp() override {
    ASSERT_NE(module_, nullptr);
    inst_ = module_->CreateInstance();
    ASSERT_NE(inst_, nullptr);
  }
  void SetDoc(const std::vector<Span>& runs) { Set(kParamSourceText, 0, 0, Document(runs)); }
  void Set(int32_t index, double x, double y = 0, std::vector<uint8_t> bytes = {}) {
    EXPECT_EQ(inst_->SetValue(index, vxhost::ParamValue{x, y, x != 0, std::move(bytes)}), 0);
  }
  Buffer Render(int32_t w = 640, int32_t h = 360, uint32_t format = kPixelFormatBGRA,
                VxStatus want = 0) {
    Frame in(w, h, format), out(w, h, format);
    in.Fill(bg_[0], bg_[1], bg_[2], bg_[3]), out.Fill(1, 2, 3, 4);
    EXPECT_EQ(inst_->Render(0, in, out), want);
    return ToBuffer(out);
  }

  static inline std::unique_ptr<vxhost::Host> host_;
  static inline std::unique_ptr<vxhost::Module> module_;
  std::unique_ptr<vxhost::Instance> inst_;
  uint8_t bg_[4] = {0, 0, 0, 255};
};

TEST_F(RenderHost, PositionScaleAndRotationActAboutTheirPoints) {
  // Stroked (margins in the buffer), at a size whose buffer (921 x 139) no reduction divides.
  SetDoc({{u"Centred text", 42, {1, 1, 1}, {0.2f, 0.4f, 1}, 2}});
  const Ink base = InkOf(Render(), bg_);
  ASSERT_GT(base.count, 500);
  EXPECT_GT(base.width(), 150);
  // Each step sets one parameter on top of the earlier ones. The renderer maps the anchor's
  // buffer point for the current scale onto the anchor, so the alignment point stays on
  // Position whatever the scale and the anchor, while rotation turns the text about the anchor.
  struct Step {
    int32_t param;
    double x, y, cx, cy, w, h;  // w, h: multiples of the upright text's (swapped when turned)
  };
  const Step steps[] = {
      {kParamScale, 200, 0, 320, 180, 2, 2},
      {kParamHorizontalScale, 50, 0, 320, 180, 2, 2},  // uniform scale is on: no effect
      {kParamUniformScale, 0, 0, 320, 180, 0.5, 2},    // vertical 200 %, horizontal 50 %
      {kParamUniformScale, 1, 0, 320, 180, 2, 2},
      {kParamScale, 50, 0, 320, 180, 0.5, 0.5},
      {kParamAnchorPoint, 0, 0, 320, 180, 0.5, 0.5},
      {kParamPosition, 200, 100, 200, 100, 0.5, 0.5},
      {kParamAnchorPoint, 200, 200, 200, 100, 0.5, 0.5},
      // Position 100 px above the anchor, turned 90 degrees clockwise: 100 px right of it.
      {kParamRotation, 90, 0, 300, 200, 0.5, 0.5},
  };
  for (const Step& s : steps) {
    Set(s.param, s.x, s.y);
    const bool turned = s.param == kParamRotation;
    Ink ink = InkOf(Render(), bg_);
    SCOPED_TRACE(testing::Message() << "param " << s.param);
    EXPECT_NEAR(ink.cx(), s.cx, 2.0);
    EXPECT_NEAR(ink.cy(), s.cy, 2.0);
    EXPECT_NEAR(ink.width(), s.w * (turned ? base.height() : base.width()), 3);
    EXPECT_NEAR(ink.height(), s.h * (turned ? base.width() : base.height()), 3);
    // Upright, more ink lies below the middle (no descenders here); turned, that side is left.
    EXPECT_GT(turned ? ink.cx() - ink.mean_x : ink.mean_y - ink.cy(),
              0.02 * (turned ? ink.width() : ink.height()));
  }
}

TEST_F(RenderHost, UnsupportedFormatAndEmptyDocument) {
  SetDoc({{u"Text"}});
  Frame in(64, 32, kPixelFormatBGRA16), out(64, 32, kPixelFormatBGRA16);
  in.Fill(9, 9, 9, 9), out.Fill(1, 2, 3, 4);
  Frame before = out;
  EXPECT_EQ(inst_->Render(0, in, out), kStatusUnsupportedPixelFormat);
  for (int32_t y = 0; y < 32; ++y) ASSERT_EQ(0, std::memcmp(out.row(y), before.row(y), 64 * 8));
  // No document: refused, the input shows. Only spaces: nothing to draw, status 0.
  Set(kParamSourceText, 0);
  EXPECT_EQ(InkOf(Render(64, 32, kPixelFormatBGRA, kStatusStructDamaged), bg_, 0).count, 0);
  SetDoc({{u"   "}});
  EXPECT_EQ(InkOf(Render(64, 32), bg_, 0).count, 0);
}

// The render's pixels are pinned by a reviewed picture (VETEXT_WRITE_REFERENCES=1 rewrites it);
// a 'vuya' frame carries the same picture, converted.
TEST_F(RenderHost, MatchesTheReviewedReferencePictureInBothFormats) {
  bg_[0] = 60, bg_[1] = 40, bg_[2] = 20;  // B, G, R
  SetDoc({{u"Vetext ", 60, {1, 0.85f, 0.2f}, {0.9f, 0.1f, 0.1f}, 6},
          {u"Wgij", 60, {0.3f, 0.8f, 1}, {1, 1, 1}, 4}});
  Set(kParamRotation, 12);
  const Buffer got = Render(480, 200);
  const std::string path = std::string(VETEXT_SOURCE_DIR) + "/tests/render/data/title.png";
  vetext_tool::Image picture(got.W, got.H);
  std::string error;
  if (std::getenv("VETEXT_WRITE_REFERENCES") != nullptr) {
    picture.pixels = got.px;
    ASSERT_TRUE(vetext_tool::WritePng(path, picture, &error)) << error;
  }
  ASSERT_TRUE(vetext_tool::ReadPng(path, &picture, &error)) << error;
  Buffer want(picture.width, picture.height);
  want.px = picture.pixels;
  vetext_tool::DiffStats d = Diff(got, want, 0, 3);
  // Within rounding, except where edges of two colours cross in one 4 x 4 block of the reduction
  // (the product of mean coverages stands in for the mean of the product there).
  EXPECT_LE(d.max_abs, 32);
  EXPECT_GT(d.psnr, 64.0);
  const VxYUV yuv = ColorRGBtoYUV(20 | 40 << 8 | 60 << 16);
  bg_[0] = uint8_t(yuv.v + 128), bg_[1] = uint8_t(yuv.u + 128), bg_[2] = yuv.y;
  Buffer converted = Render(480, 200, kPixelFormatVUYA);
  for (size_t i = 0; i < converted.px.size(); i += 4) {
    uint8_t* p = &converted.px[i];  // V, U, Y back to B, G, R
    VxRGB c = ColorYUVtoRGB(VxYUV{p[2], int8_t(p[1] - 128), int8_t(p[0] - 128)});
    p[0] = c.b, p[1] = c.g, p[2] = c.r;
  }
  d = Diff(converted, got, 0, 3);
  EXPECT_LE(d.max_abs, 8);
  EXPECT_LT(d.mean_abs, 0.5);
}

TEST_F(RenderHost, AnUnchangedDocumentIsRasterizedOnceATurnedOneResampledOnce) {
  SetDoc({{u"Cached title", 80, {1, 1, 1}, {0, 0, 0}, 3}});
  auto adds = [] { return host_->cache().Stats().adds; };
  const Buffer first = Render();
  const vxhost::CacheStats s1 = host_->cache().Stats();
  EXPECT_EQ(Render().px, first.px);
  EXPECT_EQ(adds(), s1.adds);  // nothing composed or rasterized again
  EXPECT_GT(host_->cache().Stats().hits, s1.hits);
  host_->cache().Clear();  // after eviction everything is made again, identically
  EXPECT_EQ(Render().px, first.px);
  EXPECT_GT(adds(), s1.adds);
  // Opacity blends the same reduction at half strength, or not at all.
  Set(kParamOpacity, 50);
  const Buffer half = Render();
  int counted = 0;
  for (size_t i = 1; i < first.px.size(); i += 4)
    if (first.px[i] == 255) {
      ++counted;
      EXPECT_NEAR(half.px[i], 128, 2);
    }
  EXPECT_GT(counted, 500);
  Set(kParamOpacity, 0);
  EXPECT_EQ(InkOf(Render(), bg_, 0).count, 0);
  Set(kParamOpacity, 100);
  // Turned and staying: composited directly while the placement is marked, then the placed
  // layer is made, then blended.
  Set(kParamRotation, 30);
  const uint64_t a0 = adds();
  const Buffer direct = Render();
  const uint64_t a1 = adds();
  const Buffer placed = Render();
  EXPECT_GT(a1, a0);
  EXPECT_EQ(adds(), a1 + 1);
  EXPECT_EQ(Render().px, placed.px);
  EXPECT_EQ(adds(), a1 + 1);
  EXPECT_LE(Diff(direct, placed).max_abs, 1);
  EXPECT_GT(InkOf(placed, bg_).count, 1000);
  // Fading reuses the layer; turning further starts over with a mark.
  Set(kParamOpacity, 50);
  EXPECT_GT(InkOf(Render(), bg_).count, 500);
  EXPECT_EQ(adds(), a1 + 1);
  Set(kParamRotation, 31);
  Render();
  EXPECT_EQ(adds(), a1 + 2);
  // Every suite a frame acquired for its cache work was released.
  EXPECT_EQ(host_->stats().suites_acquired.load(), host_->stats().suites_released.load());
}

// Eight threads render through the host while the frame cache evicts all the time and every
// fifth cache buffer cannot be had: each frame is the one rendered alone or reported as failed,
// and once the faults stop every instance renders right again, with no handle left behind.
TEST_F(RenderHost, EightThreadsUnderEvictionAndFailingAllocationsRenderRightOrFail) {
  inst_.reset();
  const int64_t live = host_->stats().live_handles.load();
  std::vector<std::unique_ptr<vxhost::Instance>> insts;
  std::vector<Buffer> expected;  // of instance i at 0.5 s and 1.5 s: 2 i, 2 i + 1
  const char16_t* texts[5] = {u"first thread", u"second thread", u"third one", u"fourth", u"+1"};
  auto render = [](vxhost::Instance& inst, double t, Frame& out) {
    Frame in(320, 180);
    in.Fill(0, 0, 0, 255);
    return inst.Render(t, in, out);
  };
  for (int i = 0; i < 8; ++i) {
    // Instances 4 to 7 hold one document; every text changes at the keyframe at 1 s.
    const int k = i < 4 ? i : 0;
    inst_ = module_->CreateInstance();
    for (double t : {0.0, 1.0}) {
      const std::u16string text = texts[k] + std::u16string(t > 0 ? texts[4] : u"");
      vxhost::ParamValue doc{0, 0, false, Document({{text, 30.0f + 6 * k, {1, 1, 1}, {}, 2}})};
      ASSERT_EQ(inst_->SetValue(kParamSourceText, doc, t), 0);
    }
    Set(kParamRotation, 10.0 * k);
    for (int n = 0; n < 2; ++n) {
      Frame out(320, 180);
      ASSERT_EQ(render(*inst_, 0.5 + n, out), 0);
      expected.push_back(ToBuffer(out));
    }
    insts.push_back(std::move(inst_));
  }
  host_->cache().SetBudget(8 << 10);  // smaller than two entries: constant eviction
  vxhost::FrameCache::FailEveryNthCreation(5);
  const int64_t faults = vxhost::FrameCache::FailedCreations();
  const uint64_t evictions = host_->cache().Stats().evictions;
  std::atomic<int> wrong{0}, failed{0}, right{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      Frame out(320, 180);
      for (int round = 0; round < 16; ++round) {
        if (render(*insts[size_t(t)], 0.5 + round % 2, out) != 0) {
          ++failed;
          continue;
        }
        // A turned text may come from its placed layer, within one unit of the direct composite.
        ++(Diff(ToBuffer(out), expected[size_t(2 * t + round % 2)]).max_abs > 1 ? wrong : right);
      }
    });
  for (auto& th : threads) th.join();
  vxhost::FrameCache::FailEveryNthCreation(0);
  host_->cache().SetBudget(512ull << 20);
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_GT(vxhost::FrameCache::FailedCreations(), faults + 8);  // the faults reached the render
  EXPECT_GT(right.load(), failed.load());
  EXPECT_GT(host_->cache().Stats().evictions, evictions);
  for (size_t i = 0; i < insts.size(); ++i)
    for (int n = 0; n < 2; ++n) {
      Frame out(320, 180);
      ASSERT_EQ(render(*insts[i], 0.5 + n, out), 0) << i;
      EXPECT_LE(Diff(ToBuffer(out), expected[2 * i + size_t(n)]).max_abs, 1) << i;
    }
  insts.clear();
  EXPECT_EQ(host_->stats().live_handles.load(), live);
}

}  // namespace
