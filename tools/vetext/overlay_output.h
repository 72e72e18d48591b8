// `vetext overlay`: the Transform overlay the effect draws in a viewer, scripted drags on it, and
// the frame with the overlay written as SVG (the frame as its background picture) or as PNG.
#pragma once

#include <string>
#include <vector>

#include "media_image.h"
#include "vetext/host/host.h"

namespace vetext_tool {

// A drag of one zone of the Transform box by (dx, dy) viewer pixels.
struct OverlayDrag {
  int zone = 0;  // kZone* of vetext/overlay.h
  double dx = 0, dy = 0;
};

// "ZONE:DX,DY": ZONE a zone's name (top-left, top-right, bottom-left, bottom-right, left, right,
// top, bottom, inside, anchor, rotate, knob) or number (1 to 12). False with a message otherwise.
bool ParseDrag(const std::string& text, OverlayDrag* drag, std::string* error);

// Presses the zone where the effect draws it at `time` and drags it, through the instance's
// events in the host's viewer. False with a message when the effect draws no box or the press
// misses the zone.
bool ApplyDrag(vxhost::Host& host, vxhost::Instance& inst, const OverlayDrag& drag, double time,
               std::string* error);

// The Transform overlay as the effect draws it at `time` in the host's viewer.
std::vector<vxhost::DrawnPath> DrawOverlay(vxhost::Host& host, vxhost::Instance& inst, double time);

// Writes `frame` shown at `zoom` with `paths` over it: an .svg (the frame embedded as a PNG) or a
// .png (the paths drawn with cairo). Through a temporary file, like every output.
bool WriteOverlay(const std::string& path, const Image& frame,
                  const std::vector<vxhost::DrawnPath>& paths, double zoom, std::string* error);

}  // namespace vetext_tool
