// The facade's document operations: engine start and stop, making, writing and reshaping
// documents, and the font server's name look-up.
#include <fontconfig/fontconfig.h>

#include <map>
#include <mutex>

#include "document/document_json.h"
#include "engine/kte.h"

namespace KTE {
namespace {

std::mutex g_engine_mutex;
int g_engine_starts = 0;

std::mutex g_font_mutex;
std::map<std::u16string, std::u16string>& FontNames() {
  // Freed when the module unloads; only the look-up below uses it, never a static destructor.
  static std::map<std::u16string, std::u16string> names;
  return names;
}

// The default text is entered one character at a time, so it is nine runs, never merged.
constexpr char16_t kDefaultText[] = u"TEXT Wgij";
constexpr char16_t kDefaultFontRequest[] = u"ArialUnicodeMS";

std::u16string MatchFamily(const std::u16string& name) {
  const std::string utf8 = vxcore::UTF16ToUTF8(name);
  std::u16string result = name;
  FcPattern* pattern = FcPatternCreate();
  if (pattern == nullptr) return result;
  FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(utf8.c_str()));
  FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
  FcDefaultSubstitute(pattern);
  FcResult fc_result = FcResultNoMatch;
  FcPattern* match = FcFontMatch(nullptr, pattern, &fc_result);
  if (match != nullptr) {
    FcChar8* family = nullptr;
    if (FcPatternGetString(match, FC_FAMILY, 0, &family) == FcResultMatch && family != nullptr)
      result = vxcore::UTF8ToUTF16(reinterpret_cast<const char*>(family));
    FcPatternDestroy(match);
  }
  FcPatternDestroy(pattern);
  return result;
}

}  // namespace

void EngineStart() {
  std::lock_guard<std::mutex> lock(g_engine_mutex);
  // The font configuration is loaded once; the count only keeps start and stop paired, since
  // releasing fontconfig's process-wide state would pull it from under other users.
  // The composer's font map is made on first use and kept for the life of the process: Pango
  // finishes loading fonts on a glib worker thread that can outlive an engine stop, so freeing
  // the map at stop races with that thread.
  if (g_engine_starts++ == 0) FcInit();
}

void EngineStop() {
  std::lock_guard<std::mutex> lock(g_engine_mutex);
  if (g_engine_starts > 0) --g_engine_starts;
}

std::u16string FindFont(const std::u16string& name) {
  std::lock_guard<std::mutex> lock(g_font_mutex);
  auto& names = FontNames();
  auto it = names.find(name);
  if (it != names.end()) return it->second;
  std::u16string family = MatchFamily(name);
  names.emplace(name, family);
  return family;
}

DocumentPtr MakeDefaultDocument() {
  DocumentPtr doc(new Document());
  vetext::StyleParam style;
  style.mFontName = FindFont(kDefaultFontRequest);
  for (const char16_t* p = kDefaultText; *p != u'\0'; ++p) {
    vetext::TextRun run;
    run.mText.assign(1, *p);
    run.mStyleParam = style;
    doc->data.mTextParam.mTextRuns.push_back(std::move(run));
  }
  return doc;
}

DocumentPtr MakeDocument(const uint8_t* block, size_t size) {
  if (size == 0) return MakeDefaultDocument();
  DocumentPtr doc(new Document());
  vetext::ReadDocumentBlock(block, size, doc->data);
  return doc;
}

std::vector<uint8_t> WriteDocument(const Document& doc) {
  return vetext::WriteDocumentBlock(doc.data);
}

void SetTextBox(vetext::DocumentRecord& data, int32_t width, int32_t height) {
  data.mTextParam.mWidth = width;
  data.mTextParam.mHeight = height;
}

std::vector<std::u16string> AlignmentNames(const vetext::DocumentRecord& data) {
  // Right comes before center: the list order is the alignment value.
  std::vector<std::u16string> names = {u"Left Align", u"Right Align", u"Center Align"};
  if (data.mTextParam.mWidth > 0 || data.mTextParam.mHeight > 0) {
    names.insert(names.end(), {u"Justify Last Left", u"Justify Last Center", u"Justify Last Right",
                               u"Justify All"});
  }
  return names;
}

}  // namespace KTE
