// The Transform overlay's box: where the text is drawn, as a quadrilateral, its twelve hit zones
// (vetext/overlay.h) and its drawing with the host's drawing suites.
#pragma once

#include <cstdint>

#include "document/records.h"
#include "render/geometry.h"
#include "vetext/effect.h"

namespace vetext {

struct BoxPoint {
  double x = 0, y = 0;
};

// A layout placed on the layer as the render places it under the event's parameters: layer
// pixels, visual rows (y down), the layer's pixel aspect, no viewer downsampling.
struct LayerPlacement {
  RasterGeometry g;
  TextPlacement p;
  FrameInfo frame;
  BoxPoint LayoutToLayer(double x, double y) const;  // layout units (oversampled pixels)
  BoxPoint LayerToLayout(double x, double y) const;
};
// False when the layout has nothing to place or the parameters are incomplete.
bool PlaceOnLayer(InputRecord* in, ParamList* params, const LayoutRecord& layout,
                  LayerPlacement* out);

// Layer points to viewer points and back through the event's callbacks (16.16 fixed point both
// ways, keeping the fraction); unchanged without them.
BoxPoint LayerToViewer(const EventRecord& ev, const BoxPoint& p);
BoxPoint ViewerToLayerPoint(const EventRecord& ev, const BoxPoint& p);

// The text's layout bounds as placed on the layer: corners in order top-left, top-right,
// bottom-right, bottom-left of the unturned text, and the anchor point. Layer pixels or, after
// BoxInViewer, viewer pixels.
struct TransformBox {
  BoxPoint corner[4];
  BoxPoint anchor;
};

// The box of the current document under the current transform (the event's parameters), in layer
// pixels. False when there is no text to frame (an empty document or layout, missing records).
bool MakeTransformBox(InputRecord* in, OutputRecord* out, ParamList* params, TransformBox* box);

// The box converted point by point through the event's layer_to_viewer callback (16.16 fixed
// point both ways, as the host takes points); unchanged without the callback.
TransformBox BoxInViewer(const TransformBox& layer_box, const EventRecord& ev);

// The zone (kZone* of vetext/overlay.h) under viewer point (x, y) of a box in viewer pixels.
int32_t HitTestBox(const TransformBox& viewer_box, double x, double y);

// Where the rotation knob sits: kZoneKnobDistance viewer pixels out from the top edge's midpoint.
BoxPoint KnobPoint(const TransformBox& viewer_box);

// Draws the box, its handles, the knob and the anchor mark through the DRAWBOT suites, on the
// drawer the event context's host data carries. Does nothing when a suite is missing.
void DrawTransformBox(InputRecord* in, const TransformBox& viewer_box, const EventRecord& ev);

}  // namespace vetext
