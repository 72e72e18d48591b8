// `vetext overlay`: drags recorded through the viewer's events, saved as a project and rendered
// by `vetext render --project`, put the text where the overlay shows its box.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "media_image.h"
#include "tool_run.h"

namespace {

using vetext_test::ReadWholeFile;

struct Pt {
  double x, y;
};

// The first path of the SVG: the box's outline, four corners.
std::vector<Pt> BoxOf(const std::string& svg) {
  std::vector<Pt> box;
  const size_t at = svg.find("<path d=\"");
  if (at == std::string::npos) return box;
  double x[4], y[4];
  if (std::sscanf(svg.c_str() + at + 9, "M%lf %lf L%lf %lf L%lf %lf L%lf %lf", &x[0], &y[0], &x[1],
                  &y[1], &x[2], &y[2], &x[3], &y[3]) == 8)
    for (int i = 0; i < 4; ++i) box.push_back({x[i], y[i]});
  return box;
}

class OverlayCli : public vetext_test::ToolTest {};

TEST_F(OverlayCli, DraggedBoxIsWhereTheSavedProjectDrawsTheText) {
  const std::vector<std::string> base = {"--text",       "Drag me",      "--size",
                                         "60",           "--frame-size", "480x270",
                                         "--background", "color:#000000"};
  auto with = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = {"overlay"};
    args.insert(args.end(), base.begin(), base.end());
    args.insert(args.end(), extra.begin(), extra.end());
    return Run(args);
  };
  ASSERT_EQ(with({"-o", "before.svg"}).rc, 0);
  const auto r =
      with({"--drag", "inside:-60,40", "--drag", "rotate:0,60", "--drag", "top-right:20,-10",
            "--zoom", "1.5", "--save-project", "moved.vxpj", "-o", "after.svg"});
  ASSERT_EQ(r.rc, 0) << r.err;
  ASSERT_EQ(Run({"overlay", "--project", "moved.vxpj", "--frame-size", "480x270", "--background",
                 "color:#000000", "--zoom", "1.5", "-o", "again.svg"})
                .rc,
            0);
  ASSERT_EQ(Run({"render", "--project", "moved.vxpj", "--frame-size", "480x270", "--background",
                 "color:#000000", "-o", "moved.png"})
                .rc,
            0);
  const std::vector<Pt> before = BoxOf(ReadWholeFile(Path("before.svg")));
  const std::vector<Pt> after = BoxOf(ReadWholeFile(Path("after.svg")));
  ASSERT_EQ(before.size(), 4u);
  ASSERT_EQ(after.size(), 4u);
  // The anchor's circle reaches the SVG as cubic curves.
  EXPECT_NE(ReadWholeFile(Path("after.svg")).find(" C"), std::string::npos);
  // The project shows the box the drags left.
  EXPECT_EQ(BoxOf(ReadWholeFile(Path("again.svg"))).size(), 4u);
  EXPECT_EQ(ReadWholeFile(Path("again.svg")).substr(0, 200),
            ReadWholeFile(Path("after.svg")).substr(0, 200));
  // Moved, turned and grown: the top edge is no longer level and the box is larger.
  const auto side = [](const std::vector<Pt>& b) {
    return std::hypot(b[1].x - b[0].x, b[1].y - b[0].y);
  };
  EXPECT_GT(std::fabs(after[1].y - after[0].y), 10);
  EXPECT_GT(side(after) / 1.5, side(before) * 1.05);

  // Every inked pixel of the rendered project lies inside the box (viewer pixels / 1.5).
  vetext_tool::Image png;
  std::string error;
  ASSERT_TRUE(vetext_tool::ReadPng(Path("moved.png"), &png, &error)) << error;
  int ink = 0, outside = 0;
  for (int32_t y = 0; y < png.height; ++y)
    for (int32_t x = 0; x < png.width; ++x) {
      if (png.row(y)[4 * x + 1] < 128) continue;
      ++ink;
      const Pt p{(x + 0.5) * 1.5, (y + 0.5) * 1.5};
      for (int i = 0; i < 4; ++i) {
        const Pt a = after[size_t(i)], b = after[size_t(i + 1) % 4];
        const double inside = ((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x)) /
                              std::hypot(b.x - a.x, b.y - a.y);
        if (inside < -2.0) {
          ++outside;
          break;
        }
      }
    }
  EXPECT_GT(ink, 300);
  EXPECT_EQ(outside, 0);
}

}  // namespace
