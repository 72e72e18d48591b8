#include "overlay/events.h"

#include <algorithm>

#include "overlay/text_edit.h"
#include "overlay/transform_box.h"
#include "overlay/transform_drag.h"
#include "params/params.h"
#include "vetext/overlay.h"

namespace vetext {
namespace {

bool g_editing = false;
int64_t g_last_click = 0;
int32_t g_selection_first = 0, g_selection_last = 0;  // characters, while editing

constexpr int32_t kProgramViewer = 0;
constexpr int32_t kNoZone = 0;

bool InProgramViewer(const EventRecord& ev) {
  return ev.context != nullptr && *ev.context != nullptr &&
         (*ev.context)->window_type == kProgramViewer;
}

// Viewer pixels to layer pixels through the host, as 16.16 fixed point both ways.
void ViewerToLayer(const EventRecord& ev, int32_t& x, int32_t& y) {
  if (ev.callbacks == nullptr || ev.callbacks->viewer_to_layer == nullptr) return;
  VxFixed fx = static_cast<VxFixed>(static_cast<uint32_t>(x) << 16);
  VxFixed fy = static_cast<VxFixed>(static_cast<uint32_t>(y) << 16);
  ev.callbacks->viewer_to_layer((*ev.context)->host_data, &fx, &fy);
  x = fx >> 16;
  y = fy >> 16;
}

// The Transform box's zone under the event's point, hit-tested in viewer pixels.
int32_t HitTestTransformBox(InputRecord* in, OutputRecord* out, ParamList* params,
                            const EventRecord& ev) {
  TransformBox box;
  if (!MakeTransformBox(in, out, params, &box)) return kNoZone;
  return HitTestBox(BoxInViewer(box, ev), ev.click_x, ev.click_y);
}

void DrawBox(InputRecord* in, OutputRecord* out, ParamList* params, EventRecord& ev) {
  TransformBox box;
  if (MakeTransformBox(in, out, params, &box)) DrawTransformBox(in, BoxInViewer(box, ev), ev);
}

void OnClick(InputRecord* in, OutputRecord* out, ParamList* params, EventRecord& ev) {
  if (!InProgramViewer(ev)) return;
  bool hit = false;
  BeginTransformDrag(in, out, params, ev, kNoZone);  // any click ends a drag under way
  if (ev.param_index == kParamSourceText) {
    g_editing = false;
    int32_t x = ev.click_x, y = ev.click_y;
    ViewerToLayer(ev, x, y);
    g_last_click = PackPoint(x, y);
    // A click on the text enters editing with the caret on the character under it; a click
    // beside it leaves editing.
    const int32_t at = HitTestCharacter(in, params, x, y);
    if (at >= 0) {
      g_editing = true;
      g_selection_first = g_selection_last = at;
      hit = true;
    }
  } else if (ev.param_index == kParamTransformGroup) {
    const int32_t zone = HitTestTransformBox(in, out, params, ev);
    BeginTransformDrag(in, out, params, ev, zone);
    hit = zone != kNoZone;
  }
  if (hit) ev.handled = 1;
}

void OnDrag(InputRecord* in, ParamList* params, EventRecord& ev) {
  if (!InProgramViewer(ev)) return;
  if (ev.param_index == kParamTransformGroup && ContinueTransformDrag(in, ev)) ev.handled = 1;
  if (ev.param_index == kParamSourceText && g_editing) {
    // The selection runs from the clicked character to the one under the pointer.
    int32_t x = ev.click_x, y = ev.click_y;
    ViewerToLayer(ev, x, y);
    const int32_t at = HitTestCharacter(in, params, x, y);
    if (at >= 0) g_selection_last = at;
    ev.handled = 1;
  }
}

void OnDraw(InputRecord* in, OutputRecord* out, ParamList* params, EventRecord& ev) {
  if (!InProgramViewer(ev)) return;
  if (ev.param_index == kParamTransformGroup)
    DrawBox(in, out, params, ev);
  else if (ev.param_index == kParamSourceText)
    g_editing ? DrawTextSelection(in, params, ev, g_selection_first, g_selection_last)
              : DrawTextFrame(in, params, ev);
  ev.handled = 1;  // other parameters draw nothing but the event is still consumed
}

void OnAdjustCursor(InputRecord* in, OutputRecord* out, ParamList* params, EventRecord& ev) {
  if (!InProgramViewer(ev)) return;
  ev.cursor = 0;
  if (g_editing || ev.param_index != kParamTransformGroup) return;
  const int32_t cursor = CursorForZone(HitTestTransformBox(in, out, params, ev));
  if (cursor != 0) ev.cursor = cursor;
}

}  // namespace

bool EditingFlag() {
  return g_editing;
}
void SetEditingFlag(bool on) {
  g_editing = on;
}
void Selection(int32_t* first, int32_t* last) {
  *first = std::min(g_selection_first, g_selection_last);
  *last = std::max(g_selection_first, g_selection_last);
}
int64_t LastClickPoint() {
  return g_last_click;
}
void SetLastClickPoint(int64_t packed) {
  g_last_click = packed;
}

int32_t CursorForZone(int32_t zone) {
  // Zones come in pairs that share one host cursor.
  switch (zone) {
    case kZoneTopLeft:
    case kZoneBottomRight:
      return 25;
    case kZoneTopRight:
    case kZoneBottomLeft:
      return 27;
    case kZoneLeft:
    case kZoneRight:
      return 24;
    case kZoneTop:
    case kZoneBottom:
      return 26;
    case kZoneInside:
      return 35;
    case kZoneAnchor:
      return 29;
    case kZoneRotate:
      return 33;
    case kZoneRotateKnob:
      return 31;
    default:
      return 0;
  }
}

VxStatus HandleEvent(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer*,
                     ExtraRecord* extra) {
  if (extra == nullptr) return kStatusOk;
  EventRecord& ev = extra->event;
  if (ev.event_type == kEventClick && ev.send_drag != 0) ev.event_type = kEventDrag;
  switch (ev.event_type) {
    case kEventActivate:
      g_editing = false;
      break;
    case kEventClick:
      OnClick(in, out, params, ev);
      break;
    case kEventDrag:
      OnDrag(in, params, ev);
      break;
    case kEventDraw:
      OnDraw(in, out, params, ev);
      break;
    case kEventAdjustCursor:
      OnAdjustCursor(in, out, params, ev);
      ev.handled = 1;
      break;
    default:
      break;
  }
  return kStatusOk;
}

}  // namespace vetext
