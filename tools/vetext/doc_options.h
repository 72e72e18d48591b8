// The document-building options shared by `doc`, `layout` and `render`.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <stdexcept>
#include <string>

#include "document/records.h"

namespace vetext_tool {

struct Rgb {
  float r = 1, g = 1, b = 1;
};

// What the user asked for; unset options leave the base document as it is.
struct DocumentOptions {
  bool use_default = false;  // --default: start from the default document (the usual base)
  std::string from;          // --from FILE: a JSON document record (UTF-8)
  std::string block_in;      // --block-in FILE: a document block
  std::optional<std::string> text;
  std::optional<std::string> font;
  std::optional<double> size;
  // `--size WxH`: a frame size rather than a font size. Commands that draw over a generated
  // background take it as their frame size; the others refuse it.
  std::optional<std::string> frame_size;
  std::optional<Rgb> fill, stroke;
  std::optional<double> stroke_width, leading, tracking, kerning, baseline_shift;
  std::optional<bool> fill_over_stroke;
  std::optional<std::string> align;
  std::optional<std::pair<int32_t, int32_t>> box;
};

// The limits of the document options, far above what a title or a caption needs; they keep a
// typo (an extra zero, an exponent) from reaching the effect as a size it cannot draw.
constexpr double kMaxFontSize = 1000;     // --size, pixels
constexpr double kMaxStrokeWidth = 1000;  // --stroke-width, pixels
constexpr double kMaxSpacing = 100000;    // |--leading|, |--baseline-shift| in pixels;
                                          // |--tracking|, |--kerning| in 1/1000 em
constexpr int32_t kMaxBoxSide = 16384;    // --box, pixels
constexpr size_t kMaxTextUnits = 65536;   // the document's text, UTF-16 code units

// An option value the command refuses (its exit status is 2, where a bad file's is 1).
struct OptionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Adds the options to `app` in a "Document" group; values land in `options` while parsing.
void AddDocumentOptions(CLI::App& app, DocumentOptions& options);

// The document the options describe: the base (--from, --block-in, else the default document),
// then the box, the text (one run carrying the first run's style), every style option on every
// run, and the alignment by name. Throws OptionError for a value out of its limits, and
// std::runtime_error for a base file that cannot be read or is no document, with a message for
// the user that names the file.
vetext::DocumentRecord BuildDocument(const DocumentOptions& options);
// The second half of BuildDocument: the options applied to a document the caller already holds
// (--from and --block-in are ignored). Throws OptionError as BuildDocument does.
void ApplyDocumentOptions(const DocumentOptions& options, vetext::DocumentRecord& doc);

// "WxH" (or "WXH"), digits only, each side lo to hi. False for anything else.
bool ParseWxH(const std::string& text, int32_t lo, int32_t hi, int32_t* w, int32_t* h);

// "R,G,B" with components in 0..1, or "#rrggbb". Throws std::runtime_error.
Rgb ParseColor(const std::string& text);

}  // namespace vetext_tool
