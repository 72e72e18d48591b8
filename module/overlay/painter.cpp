#include "overlay/painter.h"

#include "effect/suites.h"

namespace vetext {

struct Painter::Suites {
  Suites(const InputRecord* in)
      : draw(in, nullptr, kDrawbotDrawSuiteName, kDrawbotDrawSuiteVersion),
        supplier(in, nullptr, kDrawbotSupplierSuiteName, kDrawbotSupplierSuiteVersion),
        path(in, nullptr, kDrawbotPathSuiteName, kDrawbotPathSuiteVersion2),
        surface(in, nullptr, kDrawbotSurfaceSuiteName, kDrawbotSurfaceSuiteVersion) {}
  ScopedSuite<DrawbotDrawSuite1> draw;
  ScopedSuite<DrawbotSupplierSuite1> supplier;
  ScopedSuite<DrawbotPathSuite2> path;
  ScopedSuite<DrawbotSurfaceSuite1> surface;
  bool ok() const { return draw.get() && supplier.get() && path.get() && surface.get(); }
};

Painter::Painter(InputRecord* in, const EventRecord& ev) {
  if (in == nullptr || ev.context == nullptr || *ev.context == nullptr) return;
  try {
    suites_ = std::make_unique<Suites>(in);
  } catch (const SuiteError&) {
    return;  // a host without the drawing suites shows no overlay
  }
  auto drawer = static_cast<DrawbotDrawerRef>((*ev.context)->host_data);
  if (!suites_->ok() || suites_->draw->get_supplier(drawer, &supplier_) != 0 ||
      suites_->draw->get_surface(drawer, &surface_) != 0 ||
      suites_->supplier->new_path(supplier_, &path_) != 0)
    path_ = nullptr;
}

Painter::~Painter() {
  if (path_) suites_->supplier->dispose_path(path_);
}

bool Painter::ok() const {
  return path_ != nullptr;
}

void Painter::MoveTo(double x, double y) {
  if (path_) suites_->path->move_to(path_, float(x), float(y));
}
void Painter::LineTo(double x, double y) {
  if (path_) suites_->path->line_to(path_, float(x), float(y));
}
void Painter::Rect(double left, double top, double width, double height) {
  if (path_) suites_->path->add_rect(path_, float(left), float(top), float(width), float(height));
}
void Painter::Circle(double cx, double cy, double r) {
  if (!path_) return;
  // Four cubic quarter arcs; k places the control points so each stays within 0.03 % of a circle.
  const double k = 0.5522847498 * r;
  const auto f = [](double v) { return float(v); };
  suites_->path->move_to(path_, f(cx + r), f(cy));
  suites_->path->curve_to(path_, f(cx + r), f(cy + k), f(cx + k), f(cy + r), f(cx), f(cy + r));
  suites_->path->curve_to(path_, f(cx - k), f(cy + r), f(cx - r), f(cy + k), f(cx - r), f(cy));
  suites_->path->curve_to(path_, f(cx - r), f(cy - k), f(cx - k), f(cy - r), f(cx), f(cy - r));
  suites_->path->curve_to(path_, f(cx + k), f(cy - r), f(cx + r), f(cy - k), f(cx + r), f(cy));
  suites_->path->close(path_);
}
void Painter::Close() {
  if (path_) suites_->path->close(path_);
}
void Painter::Stroke(const DrawbotColor& color, float width) {
  Paint(color, false, width);
}
void Painter::Fill(const DrawbotColor& color) {
  Paint(color, true, 0);
}

void Painter::Paint(const DrawbotColor& color, bool fill, float width) {
  if (!path_) return;
  if (fill)
    suites_->surface->fill_path(surface_, &color, path_);
  else
    suites_->surface->stroke_path(surface_, &color, path_, width);
  suites_->supplier->dispose_path(path_);
  path_ = nullptr;
  if (suites_->supplier->new_path(supplier_, &path_) != 0) path_ = nullptr;
}

}  // namespace vetext
