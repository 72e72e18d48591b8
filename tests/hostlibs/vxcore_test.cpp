// vxcore outside JSON: UTF conversions, MixHash, RecycledMemory, trace, colour, host pointers.
#define XXH_STATIC_LINKING_ONLY
#include <gtest/gtest.h>
#include <xxhash.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "vetext/memory.h"
#include "vetext/vxcore.h"

namespace {

TEST(Utf, ValidTextRoundTripsAndBrokenTextBecomesReplacement) {
  // The first and last code point of every encoded length.
  const std::string utf8 =
      "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const std::u16string utf16 = u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF";
  EXPECT_EQ(vxcore::UTF8ToUTF16(utf8), utf16);
  EXPECT_EQ(vxcore::UTF16ToUTF8(utf16), utf8);
  EXPECT_EQ(vxcore::UTF8ToUTF16(std::string()), u"");
  EXPECT_EQ(vxcore::UTF16ToUTF8(nullptr, 5), "");

  // Invalid UTF-8, one replacement per maximal subpart: a lone continuation, truncated, broken
  // inside, overlong 2- and 3-byte forms, an encoded surrogate, beyond U+10FFFF.
  struct Case {
    std::string in;
    std::u16string want;
  };
  const Case cases[] = {{"\x80", u"\uFFFD"},
                        {"a\xC3", u"a\uFFFD"},
                        {"\xE6\x97", u"\uFFFD"},
                        {"\xE6\x97x", u"\uFFFDx"},
                        {"\xC0\xAF", u"\uFFFD\uFFFD"},
                        {"\xE0\x80\xAF", u"\uFFFD\uFFFD\uFFFD"},
                        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
                        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                        {"\xFF\xFEz", u"\uFFFD\uFFFDz"},
                        {"\xF0\x9F\x98", u"\uFFFD"}};
  for (const Case& c : cases)
    EXPECT_EQ(vxcore::UTF8ToUTF16(c.in), c.want) << testing::PrintToString(c.in);

  // Unpaired surrogates; a pair split by the given length is judged on the units present.
  const char16_t hi = 0xD83D, lo = 0xDE00, pair[] = {hi, lo};
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{hi}), "\xEF\xBF\xBD");
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{char16_t(0xDFFF), u'z'}), "\xEF\xBF\xBDz");
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{hi, hi, lo}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
  EXPECT_EQ(vxcore::UTF16ToUTF8(pair, 1), "\xEF\xBF\xBD");
}

using Digest = std::array<uint8_t, 16>;

TEST(MixHash, KnownDigestsStreamingAndRepeatedFinish) {
  vxcore::MixHash h;
  h.MixInData("", 0);
  Digest a, b;
  h.Finish(a.data());
  // The published XXH3-128 digest of no input, seed 0, most significant byte first.
  EXPECT_EQ(a, (Digest{0x99, 0xaa, 0x06, 0xd3, 0x01, 0x47, 0x98, 0xd8, 0x60, 0x01, 0xc3, 0x24, 0x46,
                       0x8d, 0x49, 0x7f}));
  EXPECT_EQ(h.Length(), 0u);
  // In pieces, the digest of the whole; Finish leaves the state as it was.
  std::vector<uint8_t> data(5000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = uint8_t(i * 131 + 7);
  size_t pos = 0;
  for (size_t step : {1u, 11u, 240u, 1000u, 3748u}) {
    h.MixInData(data.data() + pos, step);
    pos += step;
  }
  EXPECT_EQ(h.Length(), data.size());
  XXH128_canonical_t want;
  XXH128_canonicalFromHash(&want, XXH3_128bits(data.data(), data.size()));
  h.Finish(a.data());
  h.Finish(b.data());
  EXPECT_EQ(a, std::to_array(want.digest));
  EXPECT_EQ(a, b);
  h.MixInData("x", 1);
  h.Finish(b.data());
  EXPECT_NE(a, b);
}

TEST(RecycledMemory, BlocksAreReusedAndTrimmed) {
  vxcore::RecycledMemory::Trim();
  EXPECT_EQ(vxcore::RecycledMemory::PooledBytes(), 0u);
  void* first;
  {
    vxcore::RecycledMemory m(1'000'000);
    EXPECT_EQ(m.size(), 1'000'000u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(m.data()) % 64, 0u);
    std::memset(m.data(), 0xAB, m.size());  // the whole size is writable
    first = m.data();
  }
  size_t pooled = vxcore::RecycledMemory::PooledBytes();
  EXPECT_GE(pooled, 1'000'000u);
  EXPECT_LE(pooled, 1'250'000u);  // a size class wastes at most a quarter
  {
    // A slightly different size in the same class takes the same block back.
    vxcore::RecycledMemory m(1'000'100);
    EXPECT_EQ(m.data(), first);
    EXPECT_EQ(vxcore::RecycledMemory::PooledBytes(), 0u);
    // While it is in use, a second request gets a different block.
    vxcore::RecycledMemory other(1'000'000);
    EXPECT_NE(other.data(), m.data());
  }
  EXPECT_GE(vxcore::RecycledMemory::PooledBytes(), 2'000'000u);
  vxcore::RecycledMemory::Trim();
  EXPECT_EQ(vxcore::RecycledMemory::PooledBytes(), 0u);
  for (size_t size : {size_t{0}, size_t{1}, size_t{5121}}) {  // 1, 5121: one past a class
    vxcore::RecycledMemory::Trim();
    EXPECT_NE(vxcore::RecycledMemory(size).data(), nullptr);
    EXPECT_GE(vxcore::RecycledMemory::PooledBytes(), size);
  }
  EXPECT_THROW(vxcore::RecycledMemory huge(SIZE_MAX - 16), std::bad_alloc);
  vxcore::RecycledMemory::Trim();
}

TEST(Trace, FormatsIntoTheSinkAndIsSilentWithoutOne) {
  static std::vector<std::string> lines;
  vxcore::Trace("dropped %d", 1);
  vxcore::SetTraceSink([](const char* line) { lines.push_back(line); });
  vxcore::Trace("value %d of %s", 42, "x");
  const std::string big(3000, 'q');
  vxcore::Trace("%s!", big.c_str());
  vxcore::SetTraceSink(nullptr);
  vxcore::Trace("dropped too");
  EXPECT_EQ(lines, (std::vector<std::string>{"value 42 of x", big + "!"}));
}

TEST(Color, Bt709FullRangeAndInverse) {
  // Red in the low byte; y(red) = 0.2126 * 255, v(red) = 201 / 1.5748 rounds to 128, clamped.
  struct Case {
    uint32_t rgb;
    int y, u, v;
  } cases[] = {
      {0xFFFFFF, 255, 0, 0}, {0, 0, 0, 0}, {0x0000FF, 54, -29, 127}, {0xFF0000, 18, 127, -12}};
  for (const Case& c : cases) {
    const VxYUV yuv = ColorRGBtoYUV(c.rgb);
    EXPECT_EQ(std::tuple(int(yuv.y), int(yuv.u), int(yuv.v)), std::tuple(c.y, c.u, c.v)) << c.rgb;
  }
  // Colours away from the clamp read back within one step.
  for (uint32_t rgb : {0x336699u, 0x808080u, 0x10C040u, 0x7F2010u}) {
    VxRGB back = ColorYUVtoRGB(ColorRGBtoYUV(rgb));
    EXPECT_NEAR(back.r, rgb & 0xFF, 2) << std::hex << rgb;
    EXPECT_NEAR(back.g, (rgb >> 8) & 0xFF, 2) << std::hex << rgb;
    EXPECT_NEAR(back.b, (rgb >> 16) & 0xFF, 2) << std::hex << rgb;
  }
}

TEST(Memory, PointersRememberTheirSize) {
  EXPECT_EQ(RxGetPtrSize(nullptr), 0u);
  RxDisposePtr(nullptr);
  for (uint64_t size : {1234u, 0u}) {
    void* p = RxNewPtr(size);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(RxGetPtrSize(p), size);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    std::memset(p, 1, size);
    RxDisposePtr(p);
  }
  EXPECT_EQ(RxNewPtr(UINT64_MAX), nullptr);
}

}  // namespace
