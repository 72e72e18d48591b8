// The command handlers driven in-process: document data callbacks, overlay event routing, the
// GPU filter entry and the commands that must be ignored.
#include <gtest/gtest.h>

#include <cstring>

#include "effect/lifecycle.h"
#include "fake_host.h"
#include "overlay/events.h"

namespace {

using fake::BytesOf;
using fake::HandleOf;

VxStatus Arb(fake::Host& h, ArbRequestRecord req) {
  ExtraRecord extra{};
  extra.arb = req;
  VxStatus st = vetext::Dispatch(kCmdArbitraryCallback, &h.in, &h.out, nullptr, nullptr, &extra);
  return st;
}

ArbRequestRecord Req(int32_t selector, uint64_t refcon) {
  ArbRequestRecord r{};
  r.selector = selector;
  r.refcon = refcon;
  return r;
}

TEST(DocumentCallbacks, CreateAndDisposeHonourTheReferenceConstant) {
  fake::Host h;
  for (uint64_t refcon : {1u, 2u}) {
    VxHandle made = reinterpret_cast<VxHandle>(0x1);
    auto r = Req(kArbNew, refcon);
    r.u.create.dst = &made;
    EXPECT_EQ(Arb(h, r), kStatusOk);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(fake::HandleSize(made), 0u);
    ExtraRecord extra{};
    extra.arb = Req(kArbDispose, refcon);
    extra.arb.u.dispose.handle = made;
    EXPECT_EQ(vetext::Dispatch(kCmdArbitraryCallback, &h.in, &h.out, nullptr, nullptr, &extra), 0);
    EXPECT_EQ(extra.arb.u.dispose.handle, nullptr);
  }
  EXPECT_EQ(fake::g_live, 0);

  // A foreign parameter still gets its empty value on create, but 512; dispose leaves it alone.
  VxHandle foreign = nullptr;
  auto r = Req(kArbNew, 3);
  r.u.create.dst = &foreign;
  EXPECT_EQ(Arb(h, r), kStatusStructDamaged);
  ASSERT_NE(foreign, nullptr);
  auto d = Req(kArbDispose, 3);
  d.u.dispose.handle = foreign;
  EXPECT_EQ(Arb(h, d), kStatusStructDamaged);
  EXPECT_EQ(fake::g_live, 1);
  fake::DisposeHandle(foreign);

  // Create with no memory stores null and reports 4.
  fake::g_fail_after = 0;
  VxHandle none = reinterpret_cast<VxHandle>(0x1);
  r = Req(kArbNew, 2);
  r.u.create.dst = &none;
  EXPECT_EQ(Arb(h, r), kStatusOutOfMemory);
  EXPECT_EQ(none, nullptr);
}

TEST(DocumentCallbacks, CopyFlattenUnflattenKeepTheBytes) {
  fake::Host h;
  const std::vector<uint8_t> bytes = {6, 0, 0, 0, 0, 0, 0, 0, '{', 0, '}', 0, 0xFF, 0xFE};
  VxHandle src = HandleOf(bytes);

  VxHandle copy = nullptr;
  auto c = Req(kArbCopy, 1);
  c.u.copy.src = src;
  c.u.copy.dst = &copy;
  EXPECT_EQ(Arb(h, c), kStatusOk);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(*copy, *src);
  EXPECT_EQ(BytesOf(copy), bytes);

  // A foreign copy does nothing and succeeds.
  VxHandle untouched = nullptr;
  c = Req(kArbCopy, 9);
  c.u.copy.src = src;
  c.u.copy.dst = &untouched;
  EXPECT_EQ(Arb(h, c), kStatusOk);
  EXPECT_EQ(untouched, nullptr);

  uint32_t flat_size = 0;
  auto s = Req(kArbFlatSize, 77);  // size, flatten and unflatten ignore the constant
  s.u.flat_size.handle = src;
  s.u.flat_size.flat_size = &flat_size;
  EXPECT_EQ(Arb(h, s), kStatusOk);
  EXPECT_EQ(flat_size, bytes.size());

  std::vector<uint8_t> flat(flat_size + 4, 0xAA);
  auto f = Req(kArbFlatten, 77);
  f.u.flatten.handle = src;
  f.u.flatten.buf_size = flat_size;
  f.u.flatten.buf = flat.data();
  EXPECT_EQ(Arb(h, f), kStatusOk);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), flat.begin()));
  EXPECT_EQ(flat[flat_size], 0xAA);

  // A buffer size larger than the handle copies only what the handle holds.
  std::vector<uint8_t> wide(64, 0xAA);
  f.u.flatten.buf_size = 64;
  f.u.flatten.buf = wide.data();
  EXPECT_EQ(Arb(h, f), kStatusOk);
  EXPECT_EQ(wide[bytes.size()], 0xAA);

  VxHandle restored = nullptr;
  auto u = Req(kArbUnflatten, 77);
  u.u.unflatten.buf_size = flat_size;
  u.u.unflatten.buf = flat.data();
  u.u.unflatten.dst = &restored;
  EXPECT_EQ(Arb(h, u), kStatusOk);
  ASSERT_NE(restored, nullptr);
  EXPECT_EQ(BytesOf(restored), bytes);

  // Allocation failures on copy and unflatten report 4 and store null.
  fake::g_fail_after = 0;
  VxHandle failed = reinterpret_cast<VxHandle>(0x1);
  c = Req(kArbCopy, 2);
  c.u.copy.src = src;
  c.u.copy.dst = &failed;
  EXPECT_EQ(Arb(h, c), kStatusOutOfMemory);
  EXPECT_EQ(failed, nullptr);
  failed = reinterpret_cast<VxHandle>(0x1);
  u.u.unflatten.dst = &failed;
  EXPECT_EQ(Arb(h, u), kStatusOutOfMemory);
  EXPECT_EQ(failed, nullptr);
  fake::g_fail_after = -1;

  for (VxHandle x : {src, copy, restored}) fake::DisposeHandle(x);
  EXPECT_EQ(fake::g_live, 0);
}

TEST(DocumentCallbacks, InterpolateHoldsTheEarlierKeyframe) {
  fake::Host h;
  const std::vector<uint8_t> early = {1, 2, 3, 4, 5};
  VxHandle left = HandleOf(early);
  VxHandle right = HandleOf({9, 9});
  for (double t : {0.0, 0.5, 0.999}) {
    VxHandle out = nullptr;
    auto r = Req(kArbInterpolate, 2);
    r.u.interpolate.left = left;
    r.u.interpolate.right = right;
    r.u.interpolate.t = t;
    r.u.interpolate.dst = &out;
    EXPECT_EQ(Arb(h, r), kStatusOk);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(BytesOf(out), early);
    fake::DisposeHandle(out);
  }
  // An empty earlier value writes nothing; a failed allocation still reports 0 and leaves null.
  VxHandle empty = HandleOf({});
  VxHandle out = reinterpret_cast<VxHandle>(0x1);
  auto r = Req(kArbInterpolate, 2);
  r.u.interpolate.left = empty;
  r.u.interpolate.right = right;
  r.u.interpolate.dst = &out;
  EXPECT_EQ(Arb(h, r), kStatusOk);
  EXPECT_EQ(out, reinterpret_cast<VxHandle>(0x1));
  fake::g_fail_after = 0;
  out = nullptr;
  r.u.interpolate.left = left;
  EXPECT_EQ(Arb(h, r), kStatusOk);
  EXPECT_EQ(out, nullptr);
  fake::g_fail_after = -1;

  // Compare, print and unknown selectors do nothing.
  for (int32_t sel : {int32_t{kArbCompare}, int32_t{kArbPrint}, 100, -1}) {
    auto q = Req(sel, 2);
    q.u.interpolate.dst = &out;
    EXPECT_EQ(Arb(h, q), kStatusOk);
    EXPECT_EQ(out, nullptr);
  }
  for (VxHandle x : {left, right, empty}) fake::DisposeHandle(x);
  EXPECT_EQ(fake::g_live, 0);
}

TEST(Dispatch, IgnoredCommandsReadNothing) {
  for (EffectCommand cmd :
       {0u, 2u, 6u, 7u, 9u, 10u, 12u, 16u, 17u, 18u, 19u, 20u, 21u, 23u, 0xFFFFFFFFu}) {
    EXPECT_EQ(vetext::Dispatch(cmd, nullptr, nullptr, nullptr, nullptr, nullptr), kStatusOk) << cmd;
  }
  // Out-of-range codes leave the records exactly as they were.
  fake::Host h;
  OutputRecord before;
  std::memset(&before, 0x5A, sizeof before);
  h.out = before;
  EXPECT_EQ(vetext::Dispatch(23, &h.in, &h.out, nullptr, nullptr, nullptr), kStatusOk);
  EXPECT_EQ(std::memcmp(&h.out, &before, sizeof before), 0);
}

TEST(Dispatch, SequenceHandles) {
  fake::Host h;
  EXPECT_EQ(vetext::Dispatch(kCmdSequenceSetup, &h.in, &h.out, nullptr, nullptr, nullptr), 0);
  ASSERT_NE(h.out.sequence_data, nullptr);
  EXPECT_EQ(fake::HandleSize(h.out.sequence_data), 1u);
  h.in.sequence_data = h.out.sequence_data;
  EXPECT_EQ(vetext::Dispatch(kCmdSequenceSetdown, &h.in, &h.out, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(fake::g_live, 0);
  h.in.sequence_data = nullptr;  // null: nothing is called
  EXPECT_EQ(vetext::Dispatch(kCmdSequenceSetdown, &h.in, &h.out, nullptr, nullptr, nullptr), 0);
  fake::g_fail_after = 0;
  h.out.sequence_data = reinterpret_cast<VxHandle>(0x1);
  EXPECT_EQ(vetext::Dispatch(kCmdSequenceSetup, &h.in, &h.out, nullptr, nullptr, nullptr),
            kStatusStructDamaged);
  EXPECT_EQ(h.out.sequence_data, nullptr);
}

// ---- overlay routing ----------------------------------------------------------------------

struct Viewer {
  EventContext ctx{};
  EventContext* ctx_ptr = &ctx;
  EventCallbacks callbacks{};
  ExtraRecord extra{};
  explicit Viewer(int32_t window_type, int32_t type, int32_t param) {
    ctx.window_type = window_type;
    callbacks.viewer_to_layer = [](void*, VxFixed* x, VxFixed* y) -> VxStatus {
      *x *= 2;  // a viewer at half size
      *y = *y * 2 + (10 << 16);
      return 0;
    };
    extra.event.context = &ctx_ptr;
    extra.event.event_type = type;
    extra.event.param_index = param;
    extra.event.callbacks = &callbacks;
  }
  VxStatus Send() {
    return vetext::Dispatch(kCmdEvent, nullptr, nullptr, nullptr, nullptr, &extra);
  }
};

TEST(Overlay, ClickDragActivateAndClickPoint) {
  vetext::SetEditingFlag(true);
  Viewer activate(0, kEventActivate, 1);
  EXPECT_EQ(activate.Send(), 0);
  EXPECT_FALSE(vetext::EditingFlag());

  Viewer dragging(0, kEventClick, 1);
  dragging.extra.event.send_drag = 1;
  dragging.extra.event.click_x = 5;
  vetext::SetLastClickPoint(123);
  EXPECT_EQ(dragging.Send(), 0);
  EXPECT_EQ(dragging.extra.event.event_type, kEventDrag);
  EXPECT_EQ(vetext::LastClickPoint(), 123);  // a drag is not a click

  vetext::SetEditingFlag(true);
  Viewer click(0, kEventClick, 1);
  click.extra.event.click_x = -7;
  click.extra.event.click_y = 30;
  EXPECT_EQ(click.Send(), 0);
  EXPECT_FALSE(vetext::EditingFlag());
  EXPECT_EQ(vetext::LastClickPoint(), vetext::PackPoint(-14, 70));
  EXPECT_EQ(click.extra.event.handled, 0);  // nothing is hit yet

  // Outside the program viewer a click changes nothing.
  vetext::SetEditingFlag(true);
  Viewer elsewhere(1, kEventClick, 1);
  elsewhere.extra.event.click_x = 1;
  elsewhere.extra.event.handled = 5;
  EXPECT_EQ(elsewhere.Send(), 0);
  EXPECT_TRUE(vetext::EditingFlag());
  EXPECT_EQ(elsewhere.extra.event.handled, 5);
  EXPECT_EQ(vetext::LastClickPoint(), vetext::PackPoint(-14, 70));
  vetext::SetEditingFlag(false);
}

TEST(Overlay, DrawAndCursorGates) {
  for (int32_t param : {1, 2, 7}) {
    Viewer draw(0, kEventDraw, param);
    EXPECT_EQ(draw.Send(), 0);
    EXPECT_EQ(draw.extra.event.handled, 1) << param;
    Viewer other(2, kEventDraw, param);
    EXPECT_EQ(other.Send(), 0);
    EXPECT_EQ(other.extra.event.handled, 0) << param;
  }
  // Adjust-cursor is reported handled in every window; the cursor is cleared in the viewer only.
  Viewer cursor(0, kEventAdjustCursor, 2);
  cursor.extra.event.cursor = 44;
  EXPECT_EQ(cursor.Send(), 0);
  EXPECT_EQ(cursor.extra.event.handled, 1);
  EXPECT_EQ(cursor.extra.event.cursor, 0);
  Viewer away(3, kEventAdjustCursor, 2);
  away.extra.event.cursor = 44;
  EXPECT_EQ(away.Send(), 0);
  EXPECT_EQ(away.extra.event.handled, 1);
  EXPECT_EQ(away.extra.event.cursor, 44);
  vetext::SetEditingFlag(true);
  Viewer editing(0, kEventAdjustCursor, 2);
  editing.extra.event.cursor = 44;
  EXPECT_EQ(editing.Send(), 0);
  EXPECT_EQ(editing.extra.event.cursor, 0);
  vetext::SetEditingFlag(false);
  Viewer unknown(0, 6, 2);
  EXPECT_EQ(unknown.Send(), 0);
  EXPECT_EQ(unknown.extra.event.handled, 0);

  const int32_t expected[13] = {0, 25, 27, 27, 25, 24, 24, 26, 26, 35, 29, 33, 31};
  for (int32_t zone = 0; zone <= 12; ++zone) EXPECT_EQ(vetext::CursorForZone(zone), expected[zone]);
  EXPECT_EQ(vetext::CursorForZone(13), 0);
}

// ---- GPU filter entry ---------------------------------------------------------------------

TEST(GPUFilterEntry, EnumeratesExactlyOneFilter) {
  GPUFilterFunctions fns{};
  GPUFilterInfo info;
  std::memset(&info, 0x77, sizeof info);
  int32_t index = -1;
  EXPECT_EQ(vetext::GPUFilterEntry(0, &index, 1, 0, &fns, &info), 0);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(info.interface_version, 2);
  for (uint8_t b : info.name_value) EXPECT_EQ(b, 0);
  ASSERT_NE(fns.create_instance, nullptr);
  ASSERT_NE(fns.render, nullptr);

  index = 0;
  EXPECT_EQ(vetext::GPUFilterEntry(0, &index, 1, 0, &fns, &info), 0);
  EXPECT_EQ(index, 0);
  index = 1;
  EXPECT_EQ(vetext::GPUFilterEntry(0, &index, 1, 0, &fns, &info), kErrNoMoreFilters);

  // Shutting down writes nothing.
  GPUFilterFunctions untouched{};
  index = -1;
  EXPECT_EQ(vetext::GPUFilterEntry(0, &index, 0, 0, &untouched, &info), 0);
  EXPECT_EQ(untouched.create_instance, nullptr);
  EXPECT_EQ(index, -1);

  // Instances are not made until the GPU path exists: honest failures, nothing stored.
  GPUInstanceRecord rec{};
  EXPECT_EQ(fns.create_instance(&rec), kErrUnsupported);
  // The record is packed: read the slot through a copy, never a reference into it.
  void* slot = rec.private_slot;
  EXPECT_EQ(slot, nullptr);
  EXPECT_EQ(fns.dispose_instance(&rec), kErrUnsupported);
  EXPECT_EQ(fns.query_dependency(&rec, nullptr, nullptr, nullptr), kErrUnsupported);
  EXPECT_EQ(fns.precompute(&rec, nullptr, 0, nullptr), kErrUnsupported);
  EXPECT_EQ(fns.render(&rec, nullptr, nullptr, 0, nullptr), kErrUnsupported);
}

}  // namespace
