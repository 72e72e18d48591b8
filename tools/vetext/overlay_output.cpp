#include "overlay_output.h"

#include <cairo.h>
#include <png.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "files.h"
#include "vetext/overlay.h"

namespace vetext_tool {
namespace {

struct Pt {
  double x, y;
};

Pt Mid(Pt a, Pt b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

const char* const kZoneNames[] = {"top-left", "top-right", "bottom-left", "bottom-right",
                                  "left",     "right",     "top",         "bottom",
                                  "inside",   "anchor",    "rotate",      "knob"};

// The zone's press point on the box the effect drew. The first path of a Transform draw is its
// stroked outline: the four corners (top-left, top-right, bottom-right, bottom-left) and a close,
// the knob's stem from the top edge's midpoint to the knob, then the anchor's cross.
bool ZonePoint(const std::vector<vxhost::DrawnPath>& paths, int zone, Pt* at) {
  if (paths.empty() || paths[0].ops.size() < 9) return false;
  const auto& ops = paths[0].ops;
  const Pt tl{ops[0].x, ops[0].y}, tr{ops[1].x, ops[1].y}, br{ops[2].x, ops[2].y},
      bl{ops[3].x, ops[3].y};
  const Pt knob{ops[6].x, ops[6].y};
  const Pt anchor = Mid({ops[7].x, ops[7].y}, {ops[8].x, ops[8].y});
  const Pt centre = Mid(tl, br), right = Mid(tr, br);
  const double rx = right.x - centre.x, ry = right.y - centre.y, n = std::hypot(rx, ry);
  const Pt ring = n > 0 ? Pt{right.x + rx / n * 10, right.y + ry / n * 10} : right;
  const Pt points[] = {
      tl,     tr,   bl,  br, Mid(bl, tl), right, Mid(tl, tr), Mid(br, bl), Mid(centre, right),
      anchor, ring, knob};
  if (zone < 1 || zone > 12) return false;
  *at = points[zone - 1];
  return true;
}

bool Send(vxhost::Instance& inst, int32_t type, Pt at, double time, EventRecord* ev) {
  *ev = EventRecord{};
  ev->event_type = type;
  ev->param_index = 2;  // the Transform group
  ev->click_x = int32_t(std::lround(at.x));
  ev->click_y = int32_t(std::lround(at.y));
  return inst.Event(ev, time) == 0;
}

void Base64(const std::vector<uint8_t>& in, std::string* out) {
  static const char* const kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (size_t i = 0; i < in.size(); i += 3) {
    const uint32_t a = in[i], b = i + 1 < in.size() ? in[i + 1] : 0,
                   c = i + 2 < in.size() ? in[i + 2] : 0;
    const uint32_t v = a << 16 | b << 8 | c;
    out->push_back(kDigits[v >> 18]);
    out->push_back(kDigits[(v >> 12) & 63]);
    out->push_back(i + 1 < in.size() ? kDigits[(v >> 6) & 63] : '=');
    out->push_back(i + 2 < in.size() ? kDigits[v & 63] : '=');
  }
}

bool EncodePng(const Image& in, std::vector<uint8_t>* bytes, std::string* error) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = png_uint_32(in.width);
  image.height = png_uint_32(in.height);
  image.format = PNG_FORMAT_BGRA;
  png_alloc_size_t size = 0;
  if (png_image_write_get_memory_size(image, size, 0, in.pixels.data(), int32_t(in.stride()),
                                      nullptr)) {
    bytes->resize(size);
    if (png_image_write_to_memory(&image, bytes->data(), &size, 0, in.pixels.data(),
                                  int32_t(in.stride()), nullptr)) {
      bytes->resize(size);
      return true;
    }
  }
  *error = std::string("cannot encode the frame as PNG: ") + image.message;
  return false;
}

bool WriteSvg(const std::string& path, const Image& frame,
              const std::vector<vxhost::DrawnPath>& paths, double zoom, std::string* error) {
  std::vector<uint8_t> png;
  if (!EncodePng(frame, &png, error)) return false;
  char head[320];
  const double w = frame.width * zoom, h = frame.height * zoom;
  std::snprintf(head, sizeof head,
                "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" height=\"%g\" "
                "viewBox=\"0 0 %g %g\">\n<image width=\"%g\" height=\"%g\" "
                "href=\"data:image/png;base64,",
                w, h, w, h, w, h);
  std::string svg = head;
  Base64(png, &svg);
  svg += "\"/>\n" + vxhost::DrawnPathsToSvg(paths) + "</svg>\n";
  return WriteOutputFile(path, reinterpret_cast<const uint8_t*>(svg.data()), svg.size(), error);
}

// The frame scaled by `zoom` with the paths drawn over it by cairo.
bool WriteOverlayPng(const std::string& path, const Image& frame,
                     const std::vector<vxhost::DrawnPath>& paths, double zoom, std::string* error) {
  const int w = int(std::lround(frame.width * zoom)), h = int(std::lround(frame.height * zoom));
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    *error = "cannot make a " + std::to_string(w) + "x" + std::to_string(h) + " picture";
    return false;
  }
  // The frame is opaque BGRA, which is what cairo's ARGB32 holds on a little-endian machine.
  cairo_surface_t* picture = cairo_image_surface_create_for_data(
      const_cast<uint8_t*>(frame.pixels.data()), CAIRO_FORMAT_ARGB32, frame.width, frame.height,
      int(frame.stride()));
  cairo_t* cr = cairo_create(surface);
  cairo_save(cr);
  cairo_scale(cr, zoom, zoom);
  cairo_set_source_surface(cr, picture, 0, 0);
  cairo_paint(cr);
  cairo_restore(cr);
  for (const vxhost::DrawnPath& p : paths) {
    cairo_new_path(cr);
    for (const vxhost::PathOp& op : p.ops) {
      switch (op.kind) {
        case vxhost::PathOp::kMove:
          cairo_move_to(cr, op.x, op.y);
          break;
        case vxhost::PathOp::kLine:
          cairo_line_to(cr, op.x, op.y);
          break;
        case vxhost::PathOp::kRect:
          cairo_rectangle(cr, op.x, op.y, op.width, op.height);
          break;
        case vxhost::PathOp::kClose:
          cairo_close_path(cr);
          break;
        case vxhost::PathOp::kCurve:
          cairo_curve_to(cr, op.x1, op.y1, op.x2, op.y2, op.x, op.y);
          break;
      }
    }
    cairo_set_source_rgba(cr, p.color.red, p.color.green, p.color.blue, p.color.alpha);
    if (p.fill) {
      cairo_fill(cr);
    } else {
      cairo_set_line_width(cr, p.line_width);
      cairo_stroke(cr);
    }
  }
  cairo_destroy(cr);
  cairo_surface_destroy(picture);
  cairo_surface_flush(surface);
  Image out(w, h);
  const uint8_t* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  for (int y = 0; y < h; ++y)
    std::memcpy(out.row(y), data + size_t(y) * size_t(stride), out.stride());
  cairo_surface_destroy(surface);
  return WritePng(path, out, error);
}

}  // namespace

bool ParseDrag(const std::string& text, OverlayDrag* drag, std::string* error) {
  const size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  OverlayDrag d;
  for (int i = 0; i < 12; ++i)
    if (name == kZoneNames[i] || name == std::to_string(i + 1)) d.zone = i + 1;
  char tail = 0;
  if (d.zone == 0 || colon == std::string::npos ||
      std::sscanf(text.c_str() + colon + 1, "%lf,%lf%c", &d.dx, &d.dy, &tail) != 2 ||
      !std::isfinite(d.dx) || !std::isfinite(d.dy)) {
    *error = "bad --drag '" + text +
             "': expected ZONE:DX,DY in viewer pixels, ZONE one of top-left, top-right, "
             "bottom-left, bottom-right, left, right, top, bottom, inside, anchor, rotate, knob "
             "(or 1 to 12)";
    return false;
  }
  *drag = d;
  return true;
}

std::vector<vxhost::DrawnPath> DrawOverlay(vxhost::Host& host, vxhost::Instance& inst,
                                           double time) {
  host.ClearDrawing();
  EventRecord ev;
  Send(inst, kEventDraw, {0, 0}, time, &ev);
  return host.drawn_paths();
}

bool ApplyDrag(vxhost::Host& host, vxhost::Instance& inst, const OverlayDrag& drag, double time,
               std::string* error) {
  Pt at{0, 0};
  if (!ZonePoint(DrawOverlay(host, inst, time), drag.zone, &at)) {
    *error = "the effect draws no Transform box to drag (is there any text?)";
    return false;
  }
  EventRecord ev;
  if (!Send(inst, kEventClick, at, time, &ev) || ev.handled != 1) {
    *error = std::string("the press on the '") + kZoneNames[drag.zone - 1] +
             "' zone missed it (the box is too small at this zoom; try --zoom 2)";
    return false;
  }
  Send(inst, kEventDrag, {at.x + drag.dx, at.y + drag.dy}, time, &ev);
  return true;
}

bool WriteOverlay(const std::string& path, const Image& frame,
                  const std::vector<vxhost::DrawnPath>& paths, double zoom, std::string* error) {
  if (FileExtension(path) == "png") return WriteOverlayPng(path, frame, paths, zoom, error);
  return WriteSvg(path, frame, paths, zoom, error);
}

}  // namespace vetext_tool
