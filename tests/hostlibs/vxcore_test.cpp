// vxcore outside JSON: UTF conversions, MixHash, RecycledMemory, trace, colour, host pointers.
#define XXH_STATIC_LINKING_ONLY
#include <gtest/gtest.h>
#include <xxhash.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "vetext/memory.h"
#include "vetext/vxcore.h"

namespace {

std::string Hex(const uint8_t* p, size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i)
    s += "0123456789abcdef"[p[i] >> 4], s += "0123456789abcdef"[p[i] & 15];
  return s;
}

TEST(Utf, ValidTextRoundTripsAndBrokenTextBecomesReplacement) {
  // The first and last code point of every encoded length.
  const std::string utf8 =
      "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const std::u16string utf16 = u"\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF";
  EXPECT_EQ(vxcore::UTF8ToUTF16(utf8), utf16);
  EXPECT_EQ(vxcore::UTF16ToUTF8(utf16), utf8);
  EXPECT_EQ(vxcore::UTF8ToUTF16(std::string()), u"");
  EXPECT_EQ(vxcore::UTF16ToUTF8(nullptr, 5), "");

  // Invalid UTF-8, one replacement per maximal subpart: a lone continuation, truncated at the
  // end, a truncated 3-byte sequence (one replacement), broken inside, overlong 2- and 3-byte
  // forms, an encoded surrogate, beyond U+10FFFF.
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
    EXPECT_EQ(vxcore::UTF8ToUTF16(c.in), c.want)
        << Hex(reinterpret_cast<const uint8_t*>(c.in.data()), c.in.size());

  // Unpaired surrogates; a pair split by the given length is judged on the units present.
  const char16_t hi = 0xD83D, lo = 0xDE00, pair[] = {hi, lo};
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{hi}), "\xEF\xBF\xBD");
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{char16_t(0xDFFF), u'z'}), "\xEF\xBF\xBDz");
  EXPECT_EQ(vxcore::UTF16ToUTF8(std::u16string{hi, hi, lo}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
  EXPECT_EQ(vxcore::UTF16ToUTF8(pair, 1), "\xEF\xBF\xBD");
}

TEST(MixHash, KnownDigestsStreamingAndRepeatedFinish) {
  std::vector<uint8_t> data(5000);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 131 + 7);
  XXH128_hash_t ref = XXH3_128bits(data.data(), data.size());
  XXH128_canonical_t canon;
  XXH128_canonicalFromHash(&canon, ref);

  vxcore::MixHash h;
  h.MixInData("", 0);
  uint8_t a[16], b[16];
  h.Finish(a);
  // The published XXH3-128 digest of no input, seed 0, most significant byte first.
  EXPECT_EQ(Hex(a, 16), "99aa06d3014798d86001c324468d497f");
  EXPECT_EQ(h.Length(), 0u);
  size_t pos = 0;
  for (size_t step : {1u, 11u, 240u, 1000u, 3748u}) {
    h.MixInData(data.data() + pos, step);
    pos += step;
  }
  EXPECT_EQ(h.Length(), data.size());
  h.Finish(a);
  h.Finish(b);
  EXPECT_EQ(Hex(a, 16), Hex(canon.digest, 16));
  EXPECT_EQ(Hex(a, 16), Hex(b, 16));
  // More data after a Finish changes the digest.
  h.MixInData("x", 1);
  h.Finish(b);
  EXPECT_NE(Hex(a, 16), Hex(b, 16));
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
  {
    vxcore::RecycledMemory zero(0);
    EXPECT_NE(zero.data(), nullptr);
  }
  EXPECT_THROW(vxcore::RecycledMemory huge(SIZE_MAX - 16), std::bad_alloc);
  vxcore::RecycledMemory::Trim();
}

TEST(RecycledMemory, ConcurrentUseNeverSharesABlock) {
  vxcore::RecycledMemory::Trim();
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < 300; ++i) {
        size_t size = 4096 + static_cast<size_t>((i * 7919 + t * 31) % 50000);
        vxcore::RecycledMemory m(size);
        auto* p = static_cast<uint8_t*>(m.data());
        const auto tag = static_cast<uint8_t>(t * 64 + i % 64);
        std::memset(p, tag, size);
        std::this_thread::yield();
        for (size_t k = 0; k < size; k += 509)
          if (p[k] != tag) ++failures;
        if (p[size - 1] != tag) ++failures;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_GT(vxcore::RecycledMemory::PooledBytes(), 0u);
  vxcore::RecycledMemory::Trim();
}

std::vector<std::string>* g_lines = nullptr;
void Collect(const char* line) {
  g_lines->push_back(line);
}

TEST(Trace, FormatsIntoTheSinkAndIsSilentWithoutOne) {
  std::vector<std::string> lines;
  g_lines = &lines;
  vxcore::Trace("dropped %d", 1);
  vxcore::SetTraceSink(&Collect);
  vxcore::Trace("value %d of %s", 42, "x");
  std::string big(3000, 'q');
  vxcore::Trace("%s!", big.c_str());
  vxcore::SetTraceSink(nullptr);
  vxcore::Trace("dropped too");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "value 42 of x");
  EXPECT_EQ(lines[1], big + "!");
  g_lines = nullptr;
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
  void* p = RxNewPtr(1234);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(RxGetPtrSize(p), 1234u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
  std::memset(p, 1, 1234);
  void* z = RxNewPtr(0);
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(RxGetPtrSize(z), 0u);
  EXPECT_EQ(RxNewPtr(UINT64_MAX), nullptr);
  RxDisposePtr(p);
  RxDisposePtr(z);
}

}  // namespace
