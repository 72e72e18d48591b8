// The document-building options shared by `doc`, `layout` and `render`.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
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

// Adds the options to `app` in a "Document" group; values land in `options` while parsing.
void AddDocumentOptions(CLI::App& app, DocumentOptions& options);

// The document the options describe: the base (--from, --block-in, else the default document),
// then the box, the text (one run carrying the first run's style), every style option on every
// run, and the alignment by name. Throws std::runtime_error (or KTE::Error for a bad record) with
// a message for the user.
vetext::DocumentRecord BuildDocument(const DocumentOptions& options);

// "R,G,B" with components in 0..1, or "#rrggbb". Throws std::runtime_error.
Rgb ParseColor(const std::string& text);

}  // namespace vetext_tool
