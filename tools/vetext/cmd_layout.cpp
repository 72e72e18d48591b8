// `vetext layout`: the composed layout of the document the options describe, as the layout JSON
// the effect caches, or drawn as SVG (glyph boxes, origins, bounds) to see where glyphs land.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include "commands.h"
#include "doc_options.h"
#include "document/document_json.h"
#include "document/layout_json.h"
#include "engine/kte.h"
#include "files.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

struct LayoutArgs {
  DocumentOptions doc;
  bool pretty = false;
  std::string svg;
};

std::string XmlEscape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Oversampled layout coordinates, y down, as the record holds them. The cross marks (0,0): the
// first baseline's alignment point for point text, the box's top-left for box text.
std::string LayoutToSvg(const vetext::LayoutRecord& l) {
  const double margin = 16;
  double x0 = std::min(0.0, double(l.mLeft)) - margin;
  double y0 = std::min(0.0, double(l.mTop)) - margin;
  double x1 = std::max(0.0, double(l.mRight)) + margin;
  double y1 = std::max(0.0, double(l.mBottom)) + margin;
  std::ostringstream o;
  o.precision(9);
  o << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << (x1 - x0) << "\" height=\""
    << (y1 - y0) << "\" viewBox=\"" << x0 << ' ' << y0 << ' ' << (x1 - x0) << ' ' << (y1 - y0)
    << "\">\n";
  o << "<rect x=\"" << x0 << "\" y=\"" << y0 << "\" width=\"" << (x1 - x0) << "\" height=\""
    << (y1 - y0) << "\" fill=\"white\"/>\n";
  o << "<rect class=\"bounds\" x=\"" << l.mLeft << "\" y=\"" << l.mTop << "\" width=\""
    << (l.mRight - l.mLeft) << "\" height=\"" << (l.mBottom - l.mTop)
    << "\" fill=\"none\" stroke=\"#2060d0\" stroke-dasharray=\"6 4\"/>\n";
  o << "<path d=\"M -10 0 H 10 M 0 -10 V 10\" stroke=\"#888\"/>\n";
  for (const vetext::CharacterRecord& c : l.mCharacters) {
    o << "<g><title>glyph " << c.mGlyphID << ", " << XmlEscape(vxcore::UTF16ToUTF8(c.mFontName))
      << ", " << c.mFontSize << " px</title>";
    o << "<rect class=\"glyph\" x=\"" << c.mLeft << "\" y=\"" << c.mTop << "\" width=\"" << c.mWidth
      << "\" height=\"" << c.mHeight << "\" fill=\"rgb(" << int(c.mFillRed * 255) << ','
      << int(c.mFillGreen * 255) << ',' << int(c.mFillBlue * 255)
      << ")\" fill-opacity=\"0.25\" stroke=\"#d03020\"/>";
    o << "<circle class=\"origin\" cx=\"" << c.mOriginX << "\" cy=\"" << c.mOriginY
      << "\" r=\"3\" fill=\"#20a040\"/></g>\n";
  }
  o << "</svg>\n";
  return o.str();
}

int RunLayout(const LayoutArgs& a) {
  vetext::LayoutRecord layout;
  try {
    // Through the document block, exactly as the effect composes what it persisted.
    const std::vector<uint8_t> block = vetext::WriteDocumentBlock(BuildDocument(a.doc));
    KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), layout);
  } catch (const OptionError& e) {
    return FailOption(e.what());
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
  if (!a.svg.empty()) {
    std::string error;
    return WriteOutputFile(a.svg, LayoutToSvg(layout), &error) ? 0 : Fail(error);
  }
  const std::string json = vxcore::UTF16ToUTF8(vetext::LayoutToText(layout, a.pretty));
  std::fwrite(json.data(), 1, json.size(), stdout);
  std::fputc('\n', stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}

void Register(CLI::App& app) {
  auto args = std::make_shared<LayoutArgs>();
  CLI::App* sub = app.add_subcommand(
      "layout", "Compose the text document and print its layout (JSON, UTF-8) or draw it as SVG.");
  AddDocumentOptions(*sub, args->doc);
  sub->add_flag("--pretty", args->pretty, "Indent the JSON");
  sub->add_option("--svg", args->svg,
                  "Write glyph boxes, origins and bounds as SVG to FILE instead (oversampled px)");
  sub->final_callback([args]() { SetExitStatus(RunLayout(*args)); });
}

const Registrar registrar("layout", 45, Register);

}  // namespace
}  // namespace vetext_tool
