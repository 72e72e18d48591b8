#include "doc_options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "document/document_json.h"
#include "engine/kte.h"
#include "files.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

// CLI11 reports only its own errors as usage errors; a bad colour must not escape as anything else.
Rgb ColorOption(const char* name, const std::string& v) {
  try {
    return ParseColor(v);
  } catch (const std::runtime_error& e) {
    throw CLI::ValidationError(name, e.what());
  }
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::string error;
  if (!ReadInputFile(path, kMaxDocumentFileBytes, &bytes, &error)) throw std::runtime_error(error);
  return bytes;
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// `v` within [lo, hi]; the message names the option and the range.
void InRange(const char* what, double v, double lo, double hi, const char* unit) {
  if (!(v >= lo && v <= hi)) {
    char range[96];
    std::snprintf(range, sizeof range, " must be %g to %g %s", lo, hi, unit);
    throw OptionError(std::string(what) + range);
  }
}

}  // namespace

bool ParseWxH(const std::string& text, int32_t lo, int32_t hi, int32_t* w, int32_t* h) {
  const size_t x = text.find_first_of("xX");
  auto side = [&](size_t from, size_t to, int32_t* out) {
    int64_t v = 0;
    const char *b = text.data() + from, *e = text.data() + to;
    if (b == e || !std::isdigit(static_cast<unsigned char>(*b))) return false;
    const auto r = std::from_chars(b, e, v);
    if (r.ec != std::errc() || r.ptr != e || v < lo || v > hi) return false;
    *out = int32_t(v);
    return true;
  };
  return x != std::string::npos && side(0, x, w) && side(x + 1, text.size(), h);
}

Rgb ParseColor(const std::string& text) {
  Rgb c;
  if (!text.empty() && text[0] == '#') {
    unsigned r, g, b;
    char extra;
    if (text.size() != 7 || std::sscanf(text.c_str() + 1, "%2x%2x%2x%c", &r, &g, &b, &extra) != 3 ||
        !std::all_of(text.begin() + 1, text.end(),
                     [](char ch) { return std::isxdigit(static_cast<unsigned char>(ch)); }))
      throw std::runtime_error("colour '" + text + "' is not #rrggbb");
    return Rgb{r / 255.0f, g / 255.0f, b / 255.0f};
  }
  double v[3];
  char extra;
  if (std::sscanf(text.c_str(), "%lf,%lf,%lf%c", &v[0], &v[1], &v[2], &extra) != 3)
    throw std::runtime_error("colour '" + text + "' is not R,G,B or #rrggbb");
  for (double x : v)
    if (!(x >= 0.0 && x <= 1.0))
      throw std::runtime_error("colour '" + text + "': components go from 0 to 1");
  c.r = static_cast<float>(v[0]);
  c.g = static_cast<float>(v[1]);
  c.b = static_cast<float>(v[2]);
  return c;
}

void AddDocumentOptions(CLI::App& app, DocumentOptions& o) {
  const std::string g = "Document";
  app.add_flag("--default", o.use_default, "Start from the default document (the usual base)")
      ->group(g);
  auto* from = app.add_option("--from", o.from, "Start from a JSON document record (UTF-8)")
                   ->check(CLI::ExistingFile)
                   ->group(g);
  auto* block = app.add_option("--block-in", o.block_in, "Start from a document block file")
                    ->check(CLI::ExistingFile)
                    ->group(g);
  from->excludes(block);
  app.get_option("--default")->excludes(from)->excludes(block);
  app.add_option_function<std::string>(
         "--text", [&o](const std::string& v) { o.text = v; },
         "The text (UTF-8), as one run with the first run's style")
      ->group(g);
  app.add_option_function<std::string>(
         "--font", [&o](const std::string& v) { o.font = v; },
         "Font family, resolved through the font server")
      ->group(g);
  app.add_option_function<std::string>(
         "--size",
         [&o](const std::string& v) {
           // Two numbers joined by an x are a frame size; anything else must be a font size.
           if (v.find_first_of("xX") != std::string::npos) {
             o.frame_size = v;
             return;
           }
           double size = 0;
           if (!CLI::detail::lexical_cast(v, size))
             throw CLI::ValidationError("--size", "'" + v + "' is neither a font size nor WxH");
           o.size = size;
         },
         "Font size in pixels; WxH: the frame size (see --frame-size)")
      ->group(g);
  app.add_option_function<std::string>(
         "--fill", [&o](const std::string& v) { o.fill = ColorOption("--fill", v); },
         "Fill colour: R,G,B in 0..1 or #rrggbb")
      ->group(g);
  app.add_option_function<std::string>(
         "--stroke", [&o](const std::string& v) { o.stroke = ColorOption("--stroke", v); },
         "Stroke colour: R,G,B in 0..1 or #rrggbb")
      ->group(g);
  app.add_option_function<double>(
         "--stroke-width", [&o](const double& v) { o.stroke_width = v; },
         "Stroke width in pixels; 0: no stroke")
      ->group(g);
  app.add_option_function<double>(
         "--leading", [&o](const double& v) { o.leading = v; },
         "Leading in pixels (auto leading when absent)")
      ->group(g);
  app.add_option_function<double>(
         "--tracking", [&o](const double& v) { o.tracking = v; }, "Tracking in 1/1000 em")
      ->group(g);
  app.add_option_function<double>(
         "--kerning", [&o](const double& v) { o.kerning = v; }, "Kerning in 1/1000 em")
      ->group(g);
  app.add_option_function<double>(
         "--baseline-shift", [&o](const double& v) { o.baseline_shift = v; },
         "Baseline shift in pixels, positive raises the text")
      ->group(g);
  auto* fos = app.add_flag_callback(
                     "--fill-over-stroke", [&o]() { o.fill_over_stroke = true; },
                     "Paint the fill over the stroke")
                  ->group(g);
  auto* sof = app.add_flag_callback(
                     "--stroke-over-fill", [&o]() { o.fill_over_stroke = false; },
                     "Paint the stroke over the fill")
                  ->group(g);
  fos->excludes(sof);
  app.add_option_function<std::string>(
         "--align", [&o](const std::string& v) { o.align = v; },
         "Paragraph alignment by name: \"Left Align\", \"Right Align\", \"Center Align\", and for "
         "box text \"Justify Last Left\", \"Justify Last Center\", \"Justify Last Right\", "
         "\"Justify All\" (any case)")
      ->group(g);
  app.add_option_function<std::string>(
         "--box",
         [&o](const std::string& v) {
           int32_t w = 0, h = 0;
           if (!ParseWxH(v, 0, kMaxBoxSide, &w, &h))
             throw CLI::ValidationError(
                 "--box", "'" + v + "' is not WxH, each 0 to " + std::to_string(kMaxBoxSide));
           o.box = std::make_pair(w, h);
         },
         "Text box WxH in pixels; 0x0: point text")
      ->group(g);
}

vetext::DocumentRecord BuildDocument(const DocumentOptions& o) {
  if (o.frame_size)
    throw OptionError("--size " + *o.frame_size +
                      " is a frame size; give the font size in pixels, like --size 48");
  vetext::DocumentRecord doc;
  if (!o.from.empty() || !o.block_in.empty()) {
    const std::string& path = o.from.empty() ? o.block_in : o.from;
    const std::vector<uint8_t> bytes = ReadBytes(path);
    try {
      if (!o.from.empty()) {
        const std::u16string text =
            vxcore::UTF8ToUTF16(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        vetext::TextToDocument(text.data(), text.size(), doc);
      } else {
        doc = KTE::MakeDocument(bytes.data(), bytes.size())->data;
      }
    } catch (const std::exception& e) {
      throw std::runtime_error("cannot read the document in '" + path + "': " + e.what());
    }
  } else {
    doc = KTE::MakeDefaultDocument()->data;
  }
  ApplyDocumentOptions(o, doc);
  return doc;
}

void ApplyDocumentOptions(const DocumentOptions& o, vetext::DocumentRecord& doc) {
  if (o.box) KTE::SetTextBox(doc, o.box->first, o.box->second);

  if (o.text) {
    vetext::TextRun run;
    if (!doc.mTextParam.mTextRuns.empty()) {
      run.mStyleParam = doc.mTextParam.mTextRuns.front().mStyleParam;
      run.mParaParam = doc.mTextParam.mTextRuns.front().mParaParam;
    } else {
      run.mStyleParam.mFontName = KTE::FindFont(u"ArialUnicodeMS");
    }
    run.mText = vxcore::UTF8ToUTF16(*o.text);
    doc.mTextParam.mTextRuns = {run};
  }

  std::u16string font;
  if (o.font) font = KTE::FindFont(vxcore::UTF8ToUTF16(*o.font));
  if (o.size && !(*o.size > 0)) throw OptionError("--size must be greater than 0");
  if (o.size) InRange("--size", *o.size, 0, kMaxFontSize, "pixels");
  if (o.stroke_width) InRange("--stroke-width", *o.stroke_width, 0, kMaxStrokeWidth, "pixels");
  if (o.leading) InRange("--leading", *o.leading, 0, kMaxSpacing, "pixels");
  if (o.tracking)
    InRange("--tracking", *o.tracking, -kMaxSpacing, kMaxSpacing, "thousandths of an em");
  if (o.kerning)
    InRange("--kerning", *o.kerning, -kMaxSpacing, kMaxSpacing, "thousandths of an em");
  if (o.baseline_shift)
    InRange("--baseline-shift", *o.baseline_shift, -kMaxSpacing, kMaxSpacing, "pixels");
  size_t units = 0;
  for (const vetext::TextRun& run : doc.mTextParam.mTextRuns) units += run.mText.size();
  if (units > kMaxTextUnits)
    throw OptionError("the text has " + std::to_string(units) + " characters; at most " +
                      std::to_string(kMaxTextUnits) + " are drawn");

  std::optional<uint32_t> alignment;
  if (o.align) {
    const std::vector<std::u16string> names = KTE::AlignmentNames(doc);
    std::string choices;
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string name = vxcore::UTF16ToUTF8(names[i]);
      if (Lower(name) == Lower(*o.align)) alignment = static_cast<uint32_t>(i);
      choices += (i ? ", \"" : "\"") + name + "\"";
    }
    if (!alignment)
      throw OptionError("--align '" + *o.align + "' is not one of " + choices +
                        (names.size() == 3 ? " (justified names need --box)" : ""));
  }

  for (vetext::TextRun& run : doc.mTextParam.mTextRuns) {
    vetext::StyleParam& s = run.mStyleParam;
    if (o.font) s.mFontName = font;
    if (o.size) s.mFontSize = static_cast<float>(*o.size);
    if (o.fill) s.mFillRed = o.fill->r, s.mFillGreen = o.fill->g, s.mFillBlue = o.fill->b;
    if (o.stroke)
      s.mStrokeRed = o.stroke->r, s.mStrokeGreen = o.stroke->g, s.mStrokeBlue = o.stroke->b;
    if (o.stroke_width) s.mStrokeWidth = static_cast<float>(*o.stroke_width);
    if (o.leading) {
      s.mAutoLeading = false;
      s.mLeading = static_cast<float>(*o.leading);
    }
    if (o.tracking) s.mTracking = static_cast<float>(*o.tracking);
    if (o.kerning) s.mKerning = static_cast<float>(*o.kerning);
    if (o.baseline_shift) s.mBaselineShift = static_cast<float>(*o.baseline_shift);
    if (o.fill_over_stroke) s.mFillOverStroke = *o.fill_over_stroke;
    if (alignment) run.mParaParam.mAlignment = *alignment;
  }
}

}  // namespace vetext_tool
