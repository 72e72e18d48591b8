// The document record's JSON form and the document block around it.
#include "document/document_json.h"

#include <boost/any.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/kte.h"

namespace vetext {

namespace json {

using vxcore::Variant;
using vxcore::VariantPtr;

namespace {

int64_t SaturateToInt64(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9.2233720368547758e18) return std::numeric_limits<int64_t>::max();
  if (d <= -9.2233720368547758e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(d);
}

uint64_t ToUInt64Bits(const Variant& v) {
  if (const auto* p = boost::any_cast<int64_t>(&v)) return static_cast<uint64_t>(*p);
  if (const auto* p = boost::any_cast<uint64_t>(&v)) return *p;
  if (const auto* p = boost::any_cast<double>(&v))
    return static_cast<uint64_t>(SaturateToInt64(*p));
  throw boost::bad_any_cast();
}

}  // namespace

float ToFloat(const Variant& v) {
  double d;
  if (const auto* p = boost::any_cast<double>(&v))
    d = *p;
  else if (const auto* p = boost::any_cast<int64_t>(&v))
    d = static_cast<double>(*p);
  else if (const auto* p = boost::any_cast<uint64_t>(&v))
    d = static_cast<double>(*p);
  else
    throw boost::bad_any_cast();
  // Out-of-range values clamp to the largest float, so that every record read can be written
  // again (JSON has no infinity).
  constexpr float kMax = std::numeric_limits<float>::max();
  if (d > kMax) return kMax;
  if (d < -kMax) return -kMax;
  return static_cast<float>(d);
}

int32_t ToInt32(const Variant& v) {
  return static_cast<int32_t>(ToUInt64Bits(v));
}
uint32_t ToUInt32(const Variant& v) {
  return static_cast<uint32_t>(ToUInt64Bits(v));
}
bool ToBool(const Variant& v) {
  return boost::any_cast<bool>(v);
}

std::u16string ToU16(const Variant& v) {
  return vxcore::UTF8ToUTF16(boost::any_cast<const std::string&>(v));
}

const vxcore::Object& ToObject(const VariantPtr& v) {
  if (!v) throw boost::bad_any_cast();
  return boost::any_cast<const vxcore::Object&>(*v);
}

const vxcore::Array& ToArray(const VariantPtr& v) {
  if (!v) throw boost::bad_any_cast();
  return boost::any_cast<const vxcore::Array&>(*v);
}

VariantPtr Unwrap(const VariantPtr& root) {
  if (root) {
    if (const auto* obj = boost::any_cast<vxcore::Object>(root.get())) {
      if (VariantPtr inner = vxcore::GetVariantInObject(*obj, "SerializerWrappedObject"))
        return inner;
    }
  }
  return root;
}

void AddFloat(const VariantPtr& obj, const char* key, float value) {
  vxcore::AddToObject(obj, key, vxcore::MakeVariant(static_cast<double>(value)));
}
void AddInt(const VariantPtr& obj, const char* key, int64_t value) {
  vxcore::AddToObject(obj, key, vxcore::MakeVariant(value));
}
void AddUInt(const VariantPtr& obj, const char* key, uint64_t value) {
  vxcore::AddToObject(obj, key, vxcore::MakeVariant(value));
}
void AddBool(const VariantPtr& obj, const char* key, bool value) {
  vxcore::AddToObject(obj, key, vxcore::MakeVariant(value));
}
void AddString(const VariantPtr& obj, const char* key, const std::u16string& value) {
  vxcore::AddToObject(obj, key, vxcore::MakeVariant(vxcore::UTF16ToUTF8(value)));
}

}  // namespace json

namespace {

using vxcore::Object;
using vxcore::VariantPtr;

// Reads member `key` when present with `read`; a member of the wrong type becomes an engine
// error that names it, so a bad document reaches the user as a message rather than a cast.
template <typename F>
void Member(const Object& obj, const char* key, F&& read) {
  VariantPtr v = vxcore::GetVariantInObject(obj, key);
  if (!v) return;
  try {
    read(v);
  } catch (const boost::bad_any_cast&) {
    throw KTE::Error(std::string("Document member \"") + key + "\" has the wrong type");
  }
}

void ReadFloat(const Object& o, const char* key, float& field) {
  Member(o, key, [&](const VariantPtr& v) { field = json::ToFloat(*v); });
}
void ReadBool(const Object& o, const char* key, bool& field) {
  Member(o, key, [&](const VariantPtr& v) { field = json::ToBool(*v); });
}

void ReadStyle(const Object& o, StyleParam& s) {
  Member(o, "mFontName", [&](const VariantPtr& v) { s.mFontName = json::ToU16(*v); });
  ReadFloat(o, "mFontSize", s.mFontSize);
  ReadFloat(o, "mFillRed", s.mFillRed);
  ReadFloat(o, "mFillGreen", s.mFillGreen);
  ReadFloat(o, "mFillBlue", s.mFillBlue);
  ReadFloat(o, "mStrokeRed", s.mStrokeRed);
  ReadFloat(o, "mStrokeGreen", s.mStrokeGreen);
  ReadFloat(o, "mStrokeBlue", s.mStrokeBlue);
  ReadFloat(o, "mStrokeWidth", s.mStrokeWidth);
  ReadBool(o, "mAutoLeading", s.mAutoLeading);
  ReadFloat(o, "mLeading", s.mLeading);
  ReadFloat(o, "mKerning", s.mKerning);
  ReadFloat(o, "mTracking", s.mTracking);
  ReadFloat(o, "mBaselineShift", s.mBaselineShift);
  ReadBool(o, "mFillOverStroke", s.mFillOverStroke);
}

void ReadRun(const Object& o, TextRun& r) {
  Member(o, "mText", [&](const VariantPtr& v) { r.mText = json::ToU16(*v); });
  Member(o, "mStyleParam",
         [&](const VariantPtr& v) { ReadStyle(json::ToObject(v), r.mStyleParam); });
  Member(o, "mParaParam", [&](const VariantPtr& v) {
    Member(json::ToObject(v), "mAlignment",
           [&](const VariantPtr& a) { r.mParaParam.mAlignment = json::ToUInt32(*a); });
  });
}

// Runs replace whatever the record held: the array is the whole text.
void ReadRuns(const Object& o, std::vector<TextRun>& runs) {
  Member(o, "mTextRuns", [&](const VariantPtr& v) {
    std::vector<TextRun> read;
    for (const VariantPtr& e : json::ToArray(v)) {
      TextRun run;
      ReadRun(json::ToObject(e), run);
      read.push_back(std::move(run));
    }
    runs = std::move(read);
  });
}

void ReadBox(const Object& o, TextParam& t) {
  Member(o, "mWidth", [&](const VariantPtr& v) { t.mWidth = json::ToInt32(*v); });
  Member(o, "mHeight", [&](const VariantPtr& v) { t.mHeight = json::ToInt32(*v); });
}

VariantPtr WriteStyle(const StyleParam& s) {
  VariantPtr o = vxcore::MakeObject();
  json::AddString(o, "mFontName", s.mFontName);
  json::AddFloat(o, "mFontSize", s.mFontSize);
  json::AddFloat(o, "mFillRed", s.mFillRed);
  json::AddFloat(o, "mFillGreen", s.mFillGreen);
  json::AddFloat(o, "mFillBlue", s.mFillBlue);
  json::AddFloat(o, "mStrokeRed", s.mStrokeRed);
  json::AddFloat(o, "mStrokeGreen", s.mStrokeGreen);
  json::AddFloat(o, "mStrokeBlue", s.mStrokeBlue);
  json::AddFloat(o, "mStrokeWidth", s.mStrokeWidth);
  json::AddBool(o, "mAutoLeading", s.mAutoLeading);
  json::AddFloat(o, "mLeading", s.mLeading);
  json::AddFloat(o, "mKerning", s.mKerning);
  json::AddFloat(o, "mTracking", s.mTracking);
  json::AddFloat(o, "mBaselineShift", s.mBaselineShift);
  json::AddBool(o, "mFillOverStroke", s.mFillOverStroke);
  return o;
}

VariantPtr WriteDocument(const DocumentRecord& doc) {
  VariantPtr runs = vxcore::MakeArray();
  for (const TextRun& r : doc.mTextParam.mTextRuns) {
    VariantPtr run = vxcore::MakeObject();
    json::AddString(run, "mText", r.mText);
    vxcore::AddToObject(run, "mStyleParam", WriteStyle(r.mStyleParam));
    VariantPtr para = vxcore::MakeObject();
    json::AddUInt(para, "mAlignment", r.mParaParam.mAlignment);
    vxcore::AddToObject(run, "mParaParam", para);
    vxcore::AppendToArray(runs, run);
  }
  VariantPtr text = vxcore::MakeObject();
  vxcore::AddToObject(text, "mTextRuns", runs);
  json::AddInt(text, "mWidth", doc.mTextParam.mWidth);
  json::AddInt(text, "mHeight", doc.mTextParam.mHeight);
  VariantPtr root = vxcore::MakeObject();
  json::AddInt(root, "mVersion", doc.mVersion);
  vxcore::AddToObject(root, "mTextParam", text);
  return root;
}

}  // namespace

std::u16string DocumentToText(const DocumentRecord& doc, bool formatted) {
  return vxcore::GetJSONString(WriteDocument(doc), formatted);
}

void TextToDocument(const char16_t* text, size_t length, DocumentRecord& doc) {
  VariantPtr root = json::Unwrap(vxcore::JSONParse(text, length));
  if (!root) throw KTE::Error("JSON not well-formed");
  const auto* top = boost::any_cast<Object>(root.get());
  if (top == nullptr) throw KTE::Error("Document record is not a JSON object");
  // Read into a copy so that a failure part-way leaves the caller's record as it was.
  DocumentRecord read = doc;
  Member(*top, "mVersion", [&](const VariantPtr& v) { read.mVersion = json::ToInt32(*v); });
  Member(*top, "mTextParam", [&](const VariantPtr& v) {
    const Object& tp = json::ToObject(v);
    ReadRuns(tp, read.mTextParam.mTextRuns);
    ReadBox(tp, read.mTextParam);
  });
  // Older records kept the runs and the box at the top level; where present they win.
  ReadRuns(*top, read.mTextParam.mTextRuns);
  ReadBox(*top, read.mTextParam);
  doc = std::move(read);
}

std::vector<uint8_t> WriteDocumentBlock(const DocumentRecord& doc) {
  const std::u16string text = DocumentToText(doc, false);
  const uint64_t bytes = uint64_t(text.size()) * 2;
  std::vector<uint8_t> block(8 + bytes);
  for (int i = 0; i < 8; ++i) block[i] = static_cast<uint8_t>(bytes >> (8 * i));
  uint8_t* p = block.data() + 8;
  for (char16_t c : text) {
    *p++ = static_cast<uint8_t>(c & 0xFF);
    *p++ = static_cast<uint8_t>(c >> 8);
  }
  return block;
}

void ReadDocumentBlock(const uint8_t* block, size_t size, DocumentRecord& doc) {
  if (block == nullptr || size < 8) throw KTE::Error("JSON not well-formed");
  uint64_t length = 0;
  for (int i = 0; i < 8; ++i) length |= uint64_t(block[i]) << (8 * i);
  // The length field is not trusted past the bytes that are actually there.
  const uint64_t present = std::min<uint64_t>(length, size - 8);
  std::u16string text(static_cast<size_t>(present / 2), u'\0');
  const uint8_t* p = block + 8;
  for (char16_t& c : text) {
    c = static_cast<char16_t>(p[0] | (p[1] << 8));
    p += 2;
  }
  TextToDocument(text.data(), text.size(), doc);
}

}  // namespace vetext
