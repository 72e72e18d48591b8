#include "engine/document_dict.h"

#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "engine/slo_binary.h"
#include "engine/slo_text.h"

namespace KTE {

namespace {

using SLO::PDFWriter;
using SLO::Value;
using vetext::ParaParam;
using vetext::StyleParam;
using vetext::TextRun;

constexpr const char* kSource = "KTEDocumentDictionary";

[[noreturn]] void Fail(const std::string& message) {
  throw SLO::Error(kSource, 0, message);
}

// ---- writing ------------------------------------------------------------------------------

void WriteColor(PDFWriter& w, float r, float g, float b) {
  w.BeginDictionary();
  w.WriteKey("Type");
  w.WriteInteger(1);
  w.WriteKey("Values");
  w.BeginArray();
  w.WriteReal(1.0f);
  w.WriteReal(r);
  w.WriteReal(g);
  w.WriteReal(b);
  w.EndArray();
  w.EndDictionary();
}

// The style keys of a run or a sheet; `font` < 0 leaves /Font out.
void WriteStyleData(PDFWriter& w, const StyleParam& s, int32_t font) {
  w.BeginDictionary();
  if (font >= 0) {
    w.WriteKey("Font");
    w.WriteInteger(font);
  }
  w.WriteKey("FontSize");
  w.WriteReal(s.mFontSize);
  w.WriteKey("FillColor");
  WriteColor(w, s.mFillRed, s.mFillGreen, s.mFillBlue);
  w.WriteKey("StrokeColor");
  WriteColor(w, s.mStrokeRed, s.mStrokeGreen, s.mStrokeBlue);
  w.WriteKey("FillFlag");
  w.WriteBoolean(true);
  w.WriteKey("StrokeFlag");
  w.WriteBoolean(s.mStrokeWidth > 0.0f);
  w.WriteKey("OutlineWidth");
  w.WriteReal(s.mStrokeWidth);
  w.WriteKey("AutoLeading");
  w.WriteBoolean(s.mAutoLeading);
  w.WriteKey("Leading");
  w.WriteReal(s.mLeading);
  w.WriteKey("Kerning");
  w.WriteReal(s.mKerning);
  w.WriteKey("Tracking");
  w.WriteReal(s.mTracking);
  w.WriteKey("BaselineShift");
  w.WriteReal(s.mBaselineShift);
  w.WriteKey("FillFirst");
  w.WriteBoolean(!s.mFillOverStroke);
  w.EndDictionary();
}

void WriteParagraphSheet(PDFWriter& w, const ParaParam* p) {
  w.BeginDictionary();
  w.WriteKey("DefaultStyleSheet");
  w.WriteInteger(0);
  w.WriteKey("Properties");
  w.BeginDictionary();
  if (p != nullptr) {
    w.WriteKey("Justification");
    w.WriteInteger(static_cast<int32_t>(p->mAlignment));
  }
  w.EndDictionary();
  w.EndDictionary();
}

void WriteRunLengths(PDFWriter& w, const std::vector<TextRun>& runs) {
  w.WriteKey("RunLengthArray");
  w.BeginArray();
  for (const TextRun& r : runs) {
    if (r.mText.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max()))
      Fail("run too long");
    w.WriteInteger(static_cast<int32_t>(r.mText.size()));
  }
  w.EndArray();
}

}  // namespace

void WriteDocumentDictionary(const Document& doc, PDFWriter& w) {
  const vetext::DocumentRecord& d = doc.data;
  const std::vector<TextRun>& runs = d.mTextParam.mTextRuns;

  // Fonts in the order of first use.
  std::vector<std::u16string> fonts;
  std::vector<int32_t> font_of_run;
  for (const TextRun& r : runs) {
    size_t i = 0;
    while (i < fonts.size() && fonts[i] != r.mStyleParam.mFontName) ++i;
    if (i == fonts.size()) fonts.push_back(r.mStyleParam.mFontName);
    font_of_run.push_back(static_cast<int32_t>(i));
  }
  std::u16string text;
  for (const TextRun& r : runs) text += r.mText;

  w.BeginDictionary();
  w.WriteKey("Version");
  w.WriteInteger(d.mVersion);

  w.WriteKey("EngineDict");
  w.BeginDictionary();
  w.WriteKey("Editor");
  w.BeginDictionary();
  w.WriteKey("Text");
  w.WriteString(text);
  w.EndDictionary();

  w.WriteKey("ParagraphRun");
  w.BeginDictionary();
  w.WriteKey("DefaultRunData");
  w.BeginDictionary();
  w.WriteKey("ParagraphSheet");
  WriteParagraphSheet(w, nullptr);
  w.EndDictionary();
  w.WriteKey("RunArray");
  w.BeginArray();
  for (const TextRun& r : runs) {
    w.BeginDictionary();
    w.WriteKey("ParagraphSheet");
    WriteParagraphSheet(w, &r.mParaParam);
    w.EndDictionary();
  }
  w.EndArray();
  WriteRunLengths(w, runs);
  w.WriteKey("IsJoinable");
  w.WriteInteger(1);
  w.EndDictionary();

  w.WriteKey("StyleRun");
  w.BeginDictionary();
  w.WriteKey("DefaultRunData");
  w.BeginDictionary();
  w.WriteKey("StyleSheet");
  w.BeginDictionary();
  w.WriteKey("StyleSheetData");
  w.BeginDictionary();
  w.EndDictionary();
  w.EndDictionary();
  w.EndDictionary();
  w.WriteKey("RunArray");
  w.BeginArray();
  for (size_t i = 0; i < runs.size(); ++i) {
    w.BeginDictionary();
    w.WriteKey("StyleSheet");
    w.BeginDictionary();
    w.WriteKey("StyleSheetData");
    WriteStyleData(w, runs[i].mStyleParam, font_of_run[i]);
    w.EndDictionary();
    w.EndDictionary();
  }
  w.EndArray();
  WriteRunLengths(w, runs);
  w.WriteKey("IsJoinable");
  w.WriteInteger(2);
  w.EndDictionary();

  w.WriteKey("Rendered");
  w.BeginDictionary();
  w.WriteKey("Version");
  w.WriteInteger(1);
  w.WriteKey("Shapes");
  w.BeginDictionary();
  w.WriteKey("WritingDirection");
  w.WriteInteger(0);
  w.WriteKey("Children");
  w.BeginArray();
  w.BeginDictionary();
  const bool box = d.mTextParam.mWidth != 0 || d.mTextParam.mHeight != 0;
  w.WriteKey("ShapeType");
  w.WriteInteger(box ? 1 : 0);
  w.WriteKey("Procession");
  w.WriteInteger(0);
  if (box) {
    w.WriteKey("BoxBounds");
    w.BeginArray();
    w.WriteInteger(0);
    w.WriteInteger(0);
    w.WriteInteger(d.mTextParam.mWidth);
    w.WriteInteger(d.mTextParam.mHeight);
    w.EndArray();
  } else {
    w.WriteKey("PointBase");
    w.BeginArray();
    w.WriteReal(0.0f);
    w.WriteReal(0.0f);
    w.EndArray();
  }
  w.EndDictionary();
  w.EndArray();
  w.EndDictionary();
  w.EndDictionary();
  w.EndDictionary();  // EngineDict

  w.WriteKey("ResourceDict");
  w.BeginDictionary();
  w.WriteKey("FontSet");
  w.BeginArray();
  for (const std::u16string& f : fonts) {
    w.BeginDictionary();
    w.WriteKey("Name");
    w.WriteString(f);
    w.WriteKey("Script");
    w.WriteInteger(0);
    w.WriteKey("FontType");
    w.WriteInteger(1);
    w.WriteKey("Synthetic");
    w.WriteInteger(0);
    w.EndDictionary();
  }
  w.EndArray();
  w.WriteKey("StyleSheetSet");
  w.BeginArray();
  w.BeginDictionary();
  w.WriteKey("Name");
  w.WriteUTF8String("Normal");
  w.WriteKey("StyleSheetData");
  WriteStyleData(w, StyleParam{}, -1);
  w.EndDictionary();
  w.EndArray();
  w.WriteKey("ParagraphSheetSet");
  w.BeginArray();
  w.BeginDictionary();
  w.WriteKey("Name");
  w.WriteUTF8String("Normal");
  w.WriteKey("DefaultStyleSheet");
  w.WriteInteger(0);
  w.WriteKey("Properties");
  w.BeginDictionary();
  w.WriteKey("Justification");
  w.WriteInteger(static_cast<int32_t>(ParaParam{}.mAlignment));
  w.EndDictionary();
  w.EndDictionary();
  w.EndArray();
  w.WriteKey("TheNormalStyleSheet");
  w.WriteInteger(0);
  w.WriteKey("TheNormalParagraphSheet");
  w.WriteInteger(0);
  w.EndDictionary();  // ResourceDict

  w.EndDictionary();
}

Value DocumentDictionary(const Document& doc) {
  SLO::TreeWriter tree;
  WriteDocumentDictionary(doc, tree);
  return tree.Take();
}

std::vector<uint8_t> WriteDocumentText(const Document& doc, int precision, bool line_mode) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  SLO::TextPDFWriter writer(sink, precision, line_mode);
  WriteDocumentDictionary(doc, writer);
  return out;
}

std::vector<uint8_t> WriteDocumentBinary(const Document& doc) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  SLO::BinaryPDFWriter writer(sink);
  WriteDocumentDictionary(doc, writer);
  return out;
}

// ---- reading ------------------------------------------------------------------------------

namespace {

// Typed access that names the offending key in its error.
const Value* Dict(const Value* parent, const char* key) {
  const Value* v = parent ? parent->Find(key) : nullptr;
  if (v != nullptr && !v->IsDictionary()) Fail(std::string("/") + key + " is not a dictionary");
  return v;
}

const Value* Arr(const Value* parent, const char* key) {
  const Value* v = parent ? parent->Find(key) : nullptr;
  if (v != nullptr && !v->IsArray()) Fail(std::string("/") + key + " is not an array");
  return v;
}

const Value* Num(const Value* parent, const char* key) {
  const Value* v = parent ? parent->Find(key) : nullptr;
  if (v != nullptr && !v->IsNumber()) Fail(std::string("/") + key + " is not a number");
  return v;
}

int64_t ToInteger(const Value& v, const char* key) {
  if (v.kind == Value::Kind::kInteger) return v.integer;
  double d = std::round(v.Number());
  if (!(d >= std::numeric_limits<int32_t>::min() && d <= std::numeric_limits<int32_t>::max()))
    Fail(std::string("/") + key + " is out of range");
  return static_cast<int64_t>(d);
}

void ReadFloat(const Value* data, const Value* fallback, const char* key, float& out) {
  const Value* v = Num(data, key);
  if (v == nullptr) v = Num(fallback, key);
  if (v != nullptr) out = v->kind == Value::Kind::kReal ? v->real : static_cast<float>(v->integer);
}

void ReadBool(const Value* data, const Value* fallback, const char* key, bool& out) {
  const Value* v = data ? data->Find(key) : nullptr;
  if (v == nullptr && fallback != nullptr) v = fallback->Find(key);
  if (v == nullptr) return;
  if (v->kind != Value::Kind::kBoolean) Fail(std::string("/") + key + " is not a boolean");
  out = v->boolean;
}

void ReadColor(const Value* data, const Value* fallback, const char* key, float& r, float& g,
               float& b) {
  const Value* c = Dict(data, key);
  if (c == nullptr) c = Dict(fallback, key);
  const Value* values = Arr(c, "Values");
  if (values == nullptr) return;
  if (values->array.size() != 4) Fail(std::string("/") + key + " /Values needs four numbers");
  float* dst[3] = {&r, &g, &b};
  for (size_t i = 0; i < 3; ++i) {
    const Value& v = values->array[i + 1];
    if (!v.IsNumber()) Fail(std::string("/") + key + " /Values holds a non-number");
    *dst[i] = v.kind == Value::Kind::kReal ? v.real : static_cast<float>(v.integer);
  }
}

StyleParam ReadStyle(const Value* data, const Value* normal, const Value* font_set) {
  StyleParam s;
  const Value* font = Num(data, "Font");
  if (font == nullptr) font = Num(normal, "Font");
  if (font != nullptr) {
    int64_t index = ToInteger(*font, "Font");
    if (font_set == nullptr || index < 0 || static_cast<size_t>(index) >= font_set->array.size())
      Fail("/Font " + std::to_string(index) + " is not in the font set");
    const Value& entry = font_set->array[static_cast<size_t>(index)];
    if (!entry.IsDictionary()) Fail("/FontSet entry is not a dictionary");
    const Value* name = entry.Find("Name");
    if (name == nullptr || name->kind != Value::Kind::kString)
      Fail("/FontSet entry without a /Name string");
    s.mFontName = name->string;
  }
  ReadFloat(data, normal, "FontSize", s.mFontSize);
  ReadColor(data, normal, "FillColor", s.mFillRed, s.mFillGreen, s.mFillBlue);
  ReadColor(data, normal, "StrokeColor", s.mStrokeRed, s.mStrokeGreen, s.mStrokeBlue);
  ReadFloat(data, normal, "OutlineWidth", s.mStrokeWidth);
  ReadBool(data, normal, "AutoLeading", s.mAutoLeading);
  ReadFloat(data, normal, "Leading", s.mLeading);
  ReadFloat(data, normal, "Kerning", s.mKerning);
  ReadFloat(data, normal, "Tracking", s.mTracking);
  ReadFloat(data, normal, "BaselineShift", s.mBaselineShift);
  bool fill_first = !s.mFillOverStroke;
  ReadBool(data, normal, "FillFirst", fill_first);
  s.mFillOverStroke = !fill_first;
  return s;
}

ParaParam ReadParagraph(const Value* sheet, const Value* normal) {
  ParaParam p;
  const Value* j = Num(Dict(sheet, "Properties"), "Justification");
  if (j == nullptr) j = Num(Dict(normal, "Properties"), "Justification");
  if (j != nullptr) p.mAlignment = static_cast<uint32_t>(ToInteger(*j, "Justification"));
  return p;
}

std::vector<size_t> RunLengths(const Value* run, size_t runs, const char* what) {
  const Value* lengths = Arr(run, "RunLengthArray");
  if (lengths == nullptr) {
    if (runs != 0) Fail(std::string(what) + " without /RunLengthArray");
    return {};
  }
  if (lengths->array.size() != runs)
    Fail(std::string(what) + " /RunLengthArray and /RunArray differ in length");
  std::vector<size_t> out;
  for (const Value& v : lengths->array) {
    if (!v.IsNumber()) Fail(std::string(what) + " /RunLengthArray holds a non-number");
    int64_t n = ToInteger(v, "RunLengthArray");
    if (n < 0) Fail(std::string(what) + " /RunLengthArray holds a negative length");
    out.push_back(static_cast<size_t>(n));
  }
  return out;
}

const Value* ItemAt(const Value* array, size_t i) {
  if (array == nullptr || i >= array->array.size()) return nullptr;
  return &array->array[i];
}

const Value* SheetSetEntry(const Value* resources, const char* set, const char* normal_key) {
  const Value* sheets = Arr(resources, set);
  const Value* index = Num(resources, normal_key);
  int64_t i = index ? ToInteger(*index, normal_key) : 0;
  if (i < 0) return nullptr;
  const Value* sheet = ItemAt(sheets, static_cast<size_t>(i));
  if (sheet != nullptr && !sheet->IsDictionary())
    Fail(std::string("/") + set + " entry is not a dictionary");
  return sheet;
}

}  // namespace

DocumentPtr DocumentFromDictionary(const Value& root) {
  if (!root.IsDictionary()) Fail("the document is not a dictionary");
  DocumentPtr doc = boost::make_shared<Document>();
  vetext::DocumentRecord& d = doc->data;

  if (const Value* version = Num(&root, "Version"))
    d.mVersion = static_cast<int32_t>(ToInteger(*version, "Version"));

  const Value* engine = Dict(&root, "EngineDict");
  const Value* resources = Dict(&root, "ResourceDict");
  const Value* font_set = Arr(resources, "FontSet");
  const Value* normal_style =
      Dict(SheetSetEntry(resources, "StyleSheetSet", "TheNormalStyleSheet"), "StyleSheetData");
  const Value* normal_para =
      SheetSetEntry(resources, "ParagraphSheetSet", "TheNormalParagraphSheet");

  const Value* text_value = Dict(engine, "Editor") ? Dict(engine, "Editor")->Find("Text") : nullptr;
  if (text_value != nullptr && text_value->kind != Value::Kind::kString)
    Fail("/Text is not a string");
  const std::u16string text = text_value ? text_value->string : std::u16string();

  // Style runs carry the text runs.
  const Value* style_run = Dict(engine, "StyleRun");
  const Value* style_array = Arr(style_run, "RunArray");
  const size_t run_count = style_array ? style_array->array.size() : 0;
  std::vector<size_t> lengths = RunLengths(style_run, run_count, "/StyleRun");
  size_t total = 0;
  for (size_t n : lengths) {
    if (n > text.size() - total) Fail("/StyleRun lengths exceed the text");
    total += n;
  }
  if (total != text.size()) Fail("/StyleRun lengths do not cover the text");

  // Paragraph runs: parallel to the style runs when they split the text the same way,
  // otherwise each text run takes the paragraph in force at its first code unit.
  const Value* para_run = Dict(engine, "ParagraphRun");
  const Value* para_array = Arr(para_run, "RunArray");
  const size_t para_count = para_array ? para_array->array.size() : 0;
  std::vector<size_t> para_lengths = RunLengths(para_run, para_count, "/ParagraphRun");
  const bool parallel = para_lengths == lengths;

  size_t start = 0;
  for (size_t i = 0; i < run_count; ++i) {
    const Value& entry = style_array->array[i];
    if (!entry.IsDictionary()) Fail("/StyleRun /RunArray entry is not a dictionary");
    TextRun run;
    run.mText = text.substr(start, lengths[i]);
    run.mStyleParam =
        ReadStyle(Dict(Dict(&entry, "StyleSheet"), "StyleSheetData"), normal_style, font_set);
    size_t p = i;
    if (!parallel) {
      size_t pos = 0;
      p = para_count;
      for (size_t k = 0; k < para_count; ++k) {
        if (start < pos + para_lengths[k]) {
          p = k;
          break;
        }
        pos += para_lengths[k];
      }
      if (p == para_count && para_count != 0) p = para_count - 1;
    }
    const Value* para_entry = ItemAt(para_array, p);
    if (para_entry != nullptr && !para_entry->IsDictionary())
      Fail("/ParagraphRun /RunArray entry is not a dictionary");
    run.mParaParam = ReadParagraph(Dict(para_entry, "ParagraphSheet"), normal_para);
    d.mTextParam.mTextRuns.push_back(std::move(run));
    start += lengths[i];
  }

  // The first shape gives the box.
  const Value* shapes = Arr(Dict(Dict(engine, "Rendered"), "Shapes"), "Children");
  const Value* shape = ItemAt(shapes, 0);
  if (shape != nullptr) {
    if (!shape->IsDictionary()) Fail("/Children entry is not a dictionary");
    const Value* type = Num(shape, "ShapeType");
    if (type != nullptr && ToInteger(*type, "ShapeType") == 1) {
      const Value* bounds = Arr(shape, "BoxBounds");
      if (bounds == nullptr || bounds->array.size() != 4) Fail("/BoxBounds needs four numbers");
      for (const Value& v : bounds->array)
        if (!v.IsNumber()) Fail("/BoxBounds holds a non-number");
      int64_t left = ToInteger(bounds->array[0], "BoxBounds");
      int64_t top = ToInteger(bounds->array[1], "BoxBounds");
      int64_t right = ToInteger(bounds->array[2], "BoxBounds");
      int64_t bottom = ToInteger(bounds->array[3], "BoxBounds");
      int64_t width = right - left, height = bottom - top;
      if (width < std::numeric_limits<int32_t>::min() ||
          width > std::numeric_limits<int32_t>::max() ||
          height < std::numeric_limits<int32_t>::min() ||
          height > std::numeric_limits<int32_t>::max())
        Fail("/BoxBounds is out of range");
      d.mTextParam.mWidth = static_cast<int32_t>(width);
      d.mTextParam.mHeight = static_cast<int32_t>(height);
    }
  }
  return doc;
}

DocumentPtr ReadDocumentDictionary(const uint8_t* data, size_t size) {
  if (SLO::BinaryPDFReader::HasMagic(data, size)) {
    SLO::BinaryPDFReader reader(data, size);
    return DocumentFromDictionary(reader.Parse());
  }
  SLO::TextPDFReader reader(data, size);
  return DocumentFromDictionary(reader.Parse());
}

}  // namespace KTE
