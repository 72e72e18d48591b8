// Drawing the overlay through the host's DRAWBOT suites: one path at a time, stroked or filled,
// on the drawer that a draw event's context carries.
#pragma once

#include <memory>

#include "vetext/effect.h"
#include "vetext/suites.h"

namespace vetext {

class Painter {
 public:
  // Acquires the four drawing suites; ok() is false (and every call does nothing) when one is
  // missing or the event carries no drawer. Never throws.
  Painter(InputRecord* in, const EventRecord& ev);
  ~Painter();
  Painter(const Painter&) = delete;
  Painter& operator=(const Painter&) = delete;
  bool ok() const;

  // The path being built, in viewer pixels.
  void MoveTo(double x, double y);
  void LineTo(double x, double y);
  void Rect(double left, double top, double width, double height);
  void Close();
  void Circle(double cx, double cy, double r);  // a closed sub-path of four cubic arcs
  // Paints the path built so far and starts a new one.
  void Stroke(const DrawbotColor& color, float width);
  void Fill(const DrawbotColor& color);

 private:
  struct Suites;
  std::unique_ptr<Suites> suites_;
  DrawbotSupplierRef supplier_ = nullptr;
  DrawbotSurfaceRef surface_ = nullptr;
  DrawbotPathRef path_ = nullptr;
  void Paint(const DrawbotColor& color, bool fill, float width);
};

}  // namespace vetext
