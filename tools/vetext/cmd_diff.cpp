// `vetext diff A.png B.png [--tolerance N] [--min-within P]`: how far two pictures are apart,
// per colour and alpha channel, as the largest and mean absolute difference, the PSNR and the
// share of pixels within the tolerance. Exits 1 when fewer than P percent of the pixels (all of
// them by default) are within the tolerance, or the pictures cannot be compared, so scripts can
// use it as a check.
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "media_diff.h"
#include "media_image.h"

namespace vetext_tool {
namespace {

struct DiffArgs {
  std::string a, b;
  int tolerance = 0;
  double min_within = 100;
};

int RunDiff(const DiffArgs& args) {
  Image a, b;
  std::string error;
  if (!ReadPng(args.a, &a, &error)) return Fail(error);
  if (!ReadPng(args.b, &b, &error)) return Fail(error);
  if (a.width != b.width || a.height != b.height)
    return Fail("sizes differ: " + std::to_string(a.width) + "x" + std::to_string(a.height) +
                " and " + std::to_string(b.width) + "x" + std::to_string(b.height));
  const DiffStats d =
      DiffPixels(a.pixels.data(), b.pixels.data(), a.pixels.size() / 4, 0, 4, args.tolerance);
  std::printf("max %d\nmean %.4f\n", d.max_abs, d.mean_abs);
  if (std::isinf(d.psnr))
    std::printf("psnr inf\n");
  else
    std::printf("psnr %.2f\n", d.psnr);
  std::printf("within %.4f%%\n", d.within * 100);
  // Every pixel within the tolerance passes, whatever rounding the percentage had.
  if (d.max_abs > args.tolerance && d.within * 100 < args.min_within) {
    std::fprintf(stderr,
                 "vetext: %.4f%% of the pixels are within %d (at least %g%% asked); the "
                 "largest difference is %d\n",
                 d.within * 100, args.tolerance, args.min_within, d.max_abs);
    return 1;
  }
  return 0;
}

void Register(CLI::App& app) {
  auto args = std::make_shared<DiffArgs>();
  CLI::App* sub = app.add_subcommand(
      "diff", "Compare two PNG pictures: largest and mean absolute difference, PSNR");
  sub->add_option("A", args->a, "first picture")->required();
  sub->add_option("B", args->b, "second picture")->required();
  sub->add_option("--tolerance", args->tolerance,
                  "largest per-channel difference still counted as equal (default 0)")
      ->check(CLI::Range(0, 255));
  sub->add_option("--min-within", args->min_within,
                  "percentage of pixels that must be within the tolerance (default 100)")
      ->check(CLI::Range(0.0, 100.0));
  sub->callback([args] { SetExitStatus(RunDiff(*args)); });
}

const Registrar registrar("diff", 90, Register);

}  // namespace
}  // namespace vetext_tool
