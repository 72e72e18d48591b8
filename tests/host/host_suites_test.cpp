// Suite services, handles, text callbacks, layer copies and frames.
#include <cstring>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

TEST(HostSuites, AcquireReleaseUnknownWrongVersionAndFaults) {
  Host host;
  const SuiteServices* ss = host.suite_services();
  const struct {
    const char* name;
    int32_t version;
  } known[] = {{kPixelFormatSuiteName, 1}, {kParamUtilsSuiteName, 3},
               {kRPixSuiteName, 1},        {kRPixCacheSuiteName, 6},
               {kRPixCreatorSuiteName, 3}, {kVideoSegmentSuiteName, 6},
               {kDrawbotDrawSuiteName, 1}, {kDrawbotSupplierSuiteName, 1},
               {kDrawbotPathSuiteName, 1}, {kDrawbotSurfaceSuiteName, 1}};
  for (const auto& k : known) {
    const void* suite = nullptr;
    EXPECT_EQ(ss->acquire(k.name, k.version, &suite), kStatusOk) << k.name;
    EXPECT_NE(suite, nullptr) << k.name;
    EXPECT_EQ(ss->release(k.name, k.version), kStatusOk) << k.name;
    suite = reinterpret_cast<const void*>(1);
    EXPECT_NE(ss->acquire(k.name, k.version + 1, &suite), kStatusOk) << k.name;
    EXPECT_EQ(suite, nullptr) << k.name;
  }
  EXPECT_EQ(host.stats().suites_acquired.load(), 10);
  EXPECT_EQ(host.stats().suites_released.load(), 10);

  const void* suite = reinterpret_cast<const void*>(1);
  EXPECT_NE(ss->acquire("VEFX Suite", 1, &suite), kStatusOk);
  EXPECT_EQ(suite, nullptr);
  EXPECT_NE(ss->release("VEFX Suite", 1), kStatusOk);
  EXPECT_NE(ss->acquire(nullptr, 1, &suite), kStatusOk);
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, nullptr), kStatusOk);

  host.faults().missing_suites = {kRPixSuiteName};
  host.faults().null_suites = {kRPixCacheSuiteName};
  suite = reinterpret_cast<const void*>(1);
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, &suite), kStatusOk);
  EXPECT_EQ(suite, nullptr);
  suite = reinterpret_cast<const void*>(1);
  EXPECT_EQ(ss->acquire(kRPixCacheSuiteName, 6, &suite), kStatusOk);
  EXPECT_EQ(suite, nullptr);

  // The GPU accessor serves the same suites.
  EXPECT_EQ(host.gpu_suites()->acquire(kVideoSegmentSuiteName, 6, &suite), 0);
  EXPECT_NE(suite, nullptr);
}

TEST(HostSuites, HostsDoNotShareTables) {
  Host a, b;
  EXPECT_NE(a.suite_services(), b.suite_services());
  EXPECT_NE(a.utils(), b.utils());
  a.faults().missing_suites = {kRPixSuiteName};
  const void* suite = nullptr;
  EXPECT_EQ(b.suite_services()->acquire(kRPixSuiteName, 1, &suite), kStatusOk);
  EXPECT_NE(suite, nullptr);
  VxHandle h = a.utils()->new_handle(3);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(a.stats().live_handles.load(), 1);
  EXPECT_EQ(b.stats().live_handles.load(), 0);
  b.utils()->dispose_handle(h);  // the handle remembers its host
  EXPECT_EQ(a.stats().live_handles.load(), 0);
}

TEST(HostCallbacks, HandlesTextAndMessages) {
  Host host;
  const UtilCallbacks* u = host.utils();
  VxHandle h = u->new_handle(5);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(u->get_handle_size(h), 5u);
  const auto* bytes = static_cast<const uint8_t*>(*h);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(bytes[i], 0);
  VxHandle empty = u->new_handle(0);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(u->get_handle_size(empty), 0u);
  EXPECT_EQ(host.stats().live_handles.load(), 2);
  u->dispose_handle(h);
  u->dispose_handle(empty);
  u->dispose_handle(nullptr);
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().handles_allocated.load(), 2);
  EXPECT_EQ(u->get_handle_size(nullptr), 0u);
  EXPECT_EQ(u->new_handle(uint64_t(1) << 62), nullptr);

  host.faults().fail_alloc_after = 3;
  VxHandle third = u->new_handle(1);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(u->new_handle(1), nullptr);
  EXPECT_EQ(host.stats().live_handles.load(), 1);
  u->dispose_handle(third);

  char field[8];
  u->copy_text(field, sizeof field, "a long label");
  EXPECT_STREQ(field, "a long ");
  u->copy_text(field, sizeof field, nullptr);
  EXPECT_STREQ(field, "");
  OutputRecord out{};
  u->copy_message(&out, std::string(400, 'x').c_str());
  EXPECT_EQ(std::strlen(out.message), sizeof(out.message) - 1);
  u->copy_message(nullptr, "ignored");
  EXPECT_STREQ(u->lookup_string(12345, 0, 0, 0), "");  // unknown token
}

TEST(HostCallbacks, CopyLayerHonoursNegativeStrides) {
  Host host;
  const UtilCallbacks* u = host.utils();
  Frame up(3, 4, kPixelFormatBGRA, true), down(3, 4, kPixelFormatBGRA, false);
  ASSERT_TRUE(up.bottom_up());
  ASSERT_LT(up.layer()->row_bytes, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 12; ++x) up.row(y)[x] = uint8_t(y * 16 + x);
  ASSERT_EQ(u->copy_layer(nullptr, up.layer(), down.layer(), nullptr, nullptr), kStatusOk);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 12; ++x) ASSERT_EQ(down.row(y)[x], y * 16 + x) << x << "," << y;
  // Visual row 0 of a bottom-up frame sits at the highest address.
  const auto* base = static_cast<const uint8_t*>(up.layer()->data);
  EXPECT_EQ(base[3 * up.layer()->row_bytes], 3 * 16);

  // A rectangle lands at the destination rectangle.
  Frame dst(3, 4, kPixelFormatBGRA, true);
  VxRect src_rect{1, 2, 3, 4}, dst_rect{0, 0, 2, 2};
  ASSERT_EQ(u->copy_layer(nullptr, down.layer(), dst.layer(), &src_rect, &dst_rect), kStatusOk);
  EXPECT_EQ(dst.row(0)[0], 2 * 16 + 4);
  EXPECT_EQ(dst.row(1)[4], 3 * 16 + 8);
  EXPECT_EQ(dst.row(2)[0], 0);

  Frame other_size(4, 4), other_format(3, 4, kPixelFormatVUYA);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_size.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_format.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, nullptr, down.layer(), nullptr, nullptr), kStatusOk);
}

TEST(HostFrame, CopiesAreIndependentAndSizesAreSane) {
  Frame a(5, 2, kPixelFormatBGRA, true);
  a.Fill(1, 2, 3, 4);
  Frame b = a;
  b.row(0)[0] = 99;
  EXPECT_EQ(a.row(0)[0], 1);
  EXPECT_EQ(b.row(1)[2], 3);
  EXPECT_TRUE(b.bottom_up());
  Frame c(1, 1);
  c = b;
  EXPECT_EQ(c.width(), 5);
  EXPECT_EQ(c.row(0)[0], 99);
  c.row(1)[0] = 7;
  EXPECT_EQ(b.row(1)[0], 1);

  Frame deep(2, 2, kPixelFormatBGRA16);
  EXPECT_EQ(deep.bytes_per_pixel(), 8);
  EXPECT_EQ(deep.layer()->row_bytes, -16);
  Frame none(-3, 4);
  EXPECT_EQ(none.width(), 0);
  EXPECT_EQ(none.layer()->data, nullptr);
}
