// The layout cache against the reference host's frame cache: keys, one composition per distinct
// block (also under contention), eviction, missing suites and hostile entries.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "document/layout_cache.h"
#include "engine/compose_internal.h"
#include "engine/kte.h"
#include "vetext/host/host.h"
#include "vetext/suites.h"
#include "vetext/vxcore.h"

namespace {

using vetext::LayoutRecord;

std::vector<uint8_t> Block(const std::u16string& text, float size = 40.0f) {
  KTE::Document doc;
  vetext::TextRun run;
  run.mText = text;
  run.mStyleParam.mFontName = u"Liberation Sans";
  run.mStyleParam.mFontSize = size;
  doc.data.mTextParam.mTextRuns.push_back(run);
  return KTE::WriteDocument(doc);
}

std::string Key(const std::vector<uint8_t>& block) {
  char key[37];
  vetext::MakeLayoutKey(block.data(), block.size(), key);
  return key;
}

class LayoutCacheTest : public ::testing::Test {
 protected:
  LayoutCacheTest() {
    in_.suites = host_.suite_services();
    in_.utils = &utils_;
  }
  LayoutRecord Build(const std::vector<uint8_t>& block) {
    LayoutRecord l;
    vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
    return l;
  }
  LayoutRecord Direct(const std::vector<uint8_t>& block) {
    LayoutRecord l;
    KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), l);
    return l;
  }
  // Puts a raw buffer with these bytes and this format under `key`, as another writer might.
  void Plant(const std::string& key, const std::vector<uint8_t>& bytes, uint32_t format) {
    const auto* creator = host_.cache().creator_suite();
    const auto* pix = host_.cache().pix_suite();
    RPixHandle h = nullptr;
    ASSERT_GE(creator->create(&h, kRPixKindRaw, format, 1, 1, 1, 1, bytes.size()), 0);
    void* p = nullptr;
    ASSERT_GE(pix->get_pixels(h, kRPixAccessWrite, &p), 0);
    std::memcpy(p, bytes.data(), bytes.size());
    ASSERT_GE(host_.cache().cache_suite()->add(key.c_str(), h), 0);
    pix->dispose(h);
  }

  vxhost::Host host_;
  UtilCallbacks utils_{};
  InputRecord in_{};
  OutputRecord out_{};
};

TEST(LayoutKey, FirstThreeGroupsAreByteReversed) {
  uint8_t hash[16];
  for (int i = 0; i < 16; ++i) hash[i] = uint8_t(i);
  char key[37];
  std::memset(key, 'x', sizeof key);
  vetext::FormatLayoutKey(hash, key);
  EXPECT_STREQ(key, "03020100-0504-0706-0809-0a0b0c0d0e0f");
  uint8_t high[16];
  std::memset(high, 0xAB, sizeof high);
  high[0] = 0xF0;
  vetext::FormatLayoutKey(high, key);
  EXPECT_STREQ(key,
               "ababab"
               "f0-abab-abab-abab-abababababab");
}

TEST(LayoutKey, HashesTheSaltThenTheWholeBlock) {
  std::vector<uint8_t> block = Block(u"Key");
  vxcore::MixHash h;
  h.MixInData("KTEDocument", 11);
  h.MixInData(block.data(), block.size());
  uint8_t digest[16];
  h.Finish(digest);
  char expected[37];
  vetext::FormatLayoutKey(digest, expected);
  EXPECT_EQ(Key(block), expected);
  // The same bytes elsewhere in memory give the same key; one changed byte anywhere, the length
  // prefix included, gives another.
  std::vector<uint8_t> copy(block);
  EXPECT_EQ(Key(copy), Key(block));
  for (size_t at : {size_t(0), size_t(7), block.size() - 1}) {
    std::vector<uint8_t> changed(block);
    changed[at] ^= 1;
    EXPECT_NE(Key(changed), Key(block)) << at;
  }
  EXPECT_EQ(Key({}).size(), 36u);
}

TEST_F(LayoutCacheTest, ComposesOnceAndServesHitsFromTheCache) {
  std::vector<uint8_t> block = Block(u"Cached once");
  uint64_t before = KTE::ComposeCount();
  LayoutRecord first = Build(block);
  LayoutRecord second = Build(block);
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
  EXPECT_EQ(first, Direct(block));
  EXPECT_EQ(second, first);
  vxhost::CacheStats s = host_.cache().Stats();
  EXPECT_EQ(s.adds, 1u);
  EXPECT_EQ(s.entries, 1u);
  EXPECT_GE(s.hits, 1u);
  // The entry holds the layout block: a count, then that many bytes of layout text.
  RPixHandle h = nullptr;
  ASSERT_EQ(host_.cache().cache_suite()->lookup(Key(block).c_str(), &h), 0);
  ASSERT_NE(h, nullptr);
  uint32_t format = 0;
  host_.cache().pix_suite()->get_pixel_format(h, &format);
  EXPECT_EQ(format, kPixelFormatRaw);
  void* p = nullptr;
  host_.cache().pix_suite()->get_pixels(h, kRPixAccessRead, &p);
  uint64_t count = 0;
  std::memcpy(&count, p, 8);
  std::u16string text(count / 2, u'\0');
  std::memcpy(text.data(), static_cast<uint8_t*>(p) + 8, count);
  EXPECT_EQ(text.substr(0, 15), u"{\"mCharacters\":");
  host_.cache().pix_suite()->dispose(h);
  // The record a miss hands out is the one hits read back, also for fallback fonts, right to
  // left text and fractional positions.
  const std::vector<uint8_t> mixed =
      Block(u"Mixed \u0645\u0631\u062D\u0628\u0627 \u65E5\u672C 0.5", 37.3f);
  const LayoutRecord miss = Build(mixed);
  ASSERT_GT(miss.mCharacters.size(), 10u);
  EXPECT_EQ(Build(mixed), miss);
}

TEST_F(LayoutCacheTest, BlocksDifferingInOneByteGetTwoEntries) {
  std::vector<uint8_t> a = Block(u"Twin A");
  std::vector<uint8_t> b = Block(u"Twin B");
  ASSERT_EQ(a.size(), b.size());
  uint64_t before = KTE::ComposeCount();
  LayoutRecord la = Build(a), lb = Build(b);
  EXPECT_EQ(KTE::ComposeCount() - before, 2u);
  EXPECT_EQ(host_.cache().Stats().entries, 2u);
  EXPECT_NE(la, lb);
  EXPECT_EQ(Build(a), la);
  EXPECT_EQ(Build(b), lb);
}

TEST_F(LayoutCacheTest, ManyThreadsAskingForANewDocumentComposeItOnce) {
  std::vector<uint8_t> block = Block(u"Raced by eight threads, composed by one", 30);
  LayoutRecord expected = Direct(block);
  uint64_t before = KTE::ComposeCount();
  std::atomic<int> ready{0};
  std::vector<LayoutRecord> got(8);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < 8) std::this_thread::yield();
      got[size_t(t)] = Build(block);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  for (const auto& l : got) EXPECT_EQ(l, expected);
}

TEST_F(LayoutCacheTest, AfterEvictionTheNextRequestComposesAgainToAnEqualLayout) {
  std::vector<uint8_t> block = Block(u"Evicted");
  LayoutRecord first = Build(block);
  host_.cache().Clear();
  uint64_t before = KTE::ComposeCount();
  LayoutRecord again = Build(block);
  EXPECT_EQ(KTE::ComposeCount() - before, 1u);
  EXPECT_EQ(again, first);
}

TEST_F(LayoutCacheTest, MissingSuitesLeaveTheRecordAsItWasAndReleaseWhatWasTaken) {
  std::vector<uint8_t> block = Block(u"No suites");
  for (const char* name : {kRPixCacheSuiteName, kRPixCreatorSuiteName, kRPixSuiteName}) {
    SCOPED_TRACE(name);
    host_.faults().missing_suites = {name};
    int64_t acquired = host_.stats().suites_acquired, released = host_.stats().suites_released;
    uint64_t before = KTE::ComposeCount();
    LayoutRecord l;
    l.mLeft = 123.0f;
    vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
    EXPECT_EQ(l.mLeft, 123.0f);
    EXPECT_TRUE(l.mCharacters.empty());
    EXPECT_EQ(KTE::ComposeCount(), before);
    EXPECT_EQ(host_.stats().suites_acquired - acquired, host_.stats().suites_released - released);
    EXPECT_EQ(out_.out_flags & kOutFlagDisplayMessage, 0u);
  }
  host_.faults().missing_suites.clear();
  host_.faults().null_suites = {kRPixSuiteName};
  LayoutRecord l;
  vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
  EXPECT_TRUE(l.mCharacters.empty());
  EXPECT_EQ(host_.cache().Stats().entries, 0u);
}

TEST_F(LayoutCacheTest, MalformedBlockFailsAndReleasesTheMutex) {
  std::u16string bad = u"{\"mVersion\": 1, ";
  std::vector<uint8_t> block(8 + bad.size() * 2);
  uint64_t n = bad.size() * 2;
  std::memcpy(block.data(), &n, 8);
  std::memcpy(block.data() + 8, bad.data(), n);
  LayoutRecord l;
  try {
    vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
    FAIL() << "no error";
  } catch (const KTE::Error& e) {
    EXPECT_STREQ(e.what(), "JSON not well-formed");
  }
  EXPECT_EQ(host_.cache().Stats().entries, 0u);
  // Another thread can still compose: the lock was given back.
  std::thread other([&] { EXPECT_FALSE(Build(Block(u"after")).mCharacters.empty()); });
  other.join();
}

TEST_F(LayoutCacheTest, ForeignOrOversizedEntriesUnderTheKeyAreNotRead) {
  std::vector<uint8_t> block = Block(u"Planted");
  std::vector<uint8_t> bytes(64, 0);
  bytes[0] = 40;  // a plausible count, but the buffer is tagged as pixels
  Plant(Key(block), bytes, kPixelFormatBGRA);
  LayoutRecord l;
  l.mTop = 7.0f;
  vetext::BuildTextLayout(block.data(), block.size(), l, &in_, &out_);
  EXPECT_EQ(l.mTop, 7.0f);

  std::vector<uint8_t> other = Block(u"Oversized");
  std::vector<uint8_t> liar(16, 0);
  uint64_t huge = 1ull << 40;
  std::memcpy(liar.data(), &huge, 8);
  Plant(Key(other), liar, kPixelFormatRaw);
  vetext::BuildTextLayout(other.data(), other.size(), l, &in_, &out_);
  EXPECT_EQ(l.mTop, 7.0f);
}

// The Source Text parameter as the render hands it over: a handle the host sizes.
uint64_t HandleSize(VxHandle h) {
  return *reinterpret_cast<uint64_t*>(h[1]);
}

TEST_F(LayoutCacheTest, ParameterPathCopiesTheHandleAndRejectsAnEmptyOne) {
  utils_.get_handle_size = &HandleSize;
  std::vector<uint8_t> block = Block(u"From the parameter");
  uint64_t size = block.size();
  void* cells[2] = {block.data(), &size};
  ParamDef def{};
  def.param_type = kParamTypeArbitrary;
  def.u.arb_d.value = cells;
  ParamDef input{};
  ParamDef* defs[2] = {&input, &def};
  ParamList params{2, defs};
  LayoutRecord l;
  EXPECT_EQ(vetext::GetLayoutFromParam(&in_, &out_, &params, l), kStatusOk);
  EXPECT_EQ(l, Direct(block));

  size = 0;
  vxhost::CacheStats before = host_.cache().Stats();
  LayoutRecord empty;
  EXPECT_EQ(vetext::GetLayoutFromParam(&in_, &out_, &params, empty), kStatusStructDamaged);
  EXPECT_TRUE(empty.mCharacters.empty());
  vxhost::CacheStats after = host_.cache().Stats();
  EXPECT_EQ(after.hits + after.misses, before.hits + before.misses);
}

// The editing path: a live document stored under the bytes of the parameter's handle.
class StoreLayoutTest : public LayoutCacheTest {
 protected:
  StoreLayoutTest() { utils_.get_handle_size = &HandleSize; }
  VxStatus Store(const KTE::Document& doc, std::vector<uint8_t>& bytes) {
    size_ = bytes.size();
    cells_[0] = bytes.data();
    cells_[1] = &size_;
    return vetext::StoreLayoutForDocument(doc, cells_, &in_, &out_);
  }
  uint64_t size_ = 0;
  void* cells_[2] = {nullptr, nullptr};
};

TEST_F(StoreLayoutTest, StoresTheLiveDocumentsLayoutUnderTheHandlesKeyOnce) {
  std::vector<uint8_t> block = Block(u"Stored while editing");
  KTE::DocumentPtr live = KTE::MakeDocument(block.data(), block.size());
  EXPECT_EQ(Store(*live, block), kStatusOk);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  // The next request for the block is a hit: no composition, the same layout.
  const LayoutRecord expected = Direct(block);
  uint64_t before = KTE::ComposeCount();
  EXPECT_EQ(Build(block), expected);
  EXPECT_EQ(KTE::ComposeCount(), before);
  // Present already: neither composed nor added again.
  before = KTE::ComposeCount();
  EXPECT_EQ(Store(*live, block), kStatusOk);
  EXPECT_EQ(KTE::ComposeCount(), before);
  EXPECT_EQ(host_.cache().Stats().adds, 1u);
  EXPECT_EQ(host_.cache().Stats().entries, 1u);
}

TEST_F(StoreLayoutTest, ComposesTheLiveDocumentNotTheBlockAndKeysTheBlock) {
  std::vector<uint8_t> old_block = Block(u"Before the edit");
  std::vector<uint8_t> new_block = Block(u"After the edit", 60.0f);
  KTE::DocumentPtr live = KTE::MakeDocument(new_block.data(), new_block.size());
  EXPECT_EQ(Store(*live, old_block), kStatusOk);
  // Under the handle's key sits the live document's layout.
  const LayoutRecord expected = Direct(new_block);
  uint64_t before = KTE::ComposeCount();
  EXPECT_EQ(Build(old_block), expected);
  EXPECT_EQ(KTE::ComposeCount(), before);
  EXPECT_NE(Direct(old_block), Direct(new_block));
}

TEST_F(StoreLayoutTest, MissingSuitesOrAnEmptyHandleStoreNothing) {
  std::vector<uint8_t> block = Block(u"Nowhere to store");
  KTE::DocumentPtr live = KTE::MakeDocument(block.data(), block.size());
  for (const char* name : {kRPixCacheSuiteName, kRPixCreatorSuiteName, kRPixSuiteName}) {
    SCOPED_TRACE(name);
    host_.faults().missing_suites = {name};
    int64_t acquired = host_.stats().suites_acquired, released = host_.stats().suites_released;
    EXPECT_EQ(Store(*live, block), kStatusOk);
    EXPECT_EQ(host_.cache().Stats().entries, 0u);
    EXPECT_EQ(host_.stats().suites_acquired - acquired, host_.stats().suites_released - released);
  }
  host_.faults().missing_suites.clear();
  host_.faults().null_suites = {kRPixCreatorSuiteName};
  EXPECT_EQ(Store(*live, block), kStatusOk);
  EXPECT_EQ(host_.cache().Stats().entries, 0u);
  host_.faults().null_suites.clear();

  std::vector<uint8_t> empty;
  vxhost::CacheStats before = host_.cache().Stats();
  EXPECT_EQ(Store(*live, empty), kStatusStructDamaged);
  vxhost::CacheStats after = host_.cache().Stats();
  EXPECT_EQ(after.hits + after.misses + after.adds, before.hits + before.misses + before.adds);
  EXPECT_EQ(vetext::StoreLayoutForDocument(*live, nullptr, &in_, &out_), kStatusStructDamaged);
}

}  // namespace
