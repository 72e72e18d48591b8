// The layout record's JSON form. Missing members read as zero, false or empty; the layout is
// written by this module only, so the reader keeps to what the writer produces.
//
// Every cache hit reads a layout text, so the reader walks the text's events straight into the
// records, and the writer streams the records out: neither builds the host's value tree (one
// allocation per value). The tree forms stay as the reference both are checked against; the
// rules they follow (first of duplicate keys, the wrapper member, number kinds, a wrong type
// failing only once the text is known to be well-formed) are kept exactly.
#include "document/layout_json.h"

#include <boost/any.hpp>

#include <cmath>
#include <cstring>
#include <limits>

#include "document/document_json.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

using vxcore::Object;
using vxcore::VariantPtr;

float Float(const Object& o, const char* key) {
  VariantPtr v = vxcore::GetVariantInObject(o, key);
  return v ? json::ToFloat(*v) : 0.0f;
}
bool Bool(const Object& o, const char* key) {
  VariantPtr v = vxcore::GetVariantInObject(o, key);
  return v ? json::ToBool(*v) : false;
}

CharacterRecord ReadCharacter(const Object& o) {
  CharacterRecord c;
  if (VariantPtr v = vxcore::GetVariantInObject(o, "mGlyphID")) c.mGlyphID = json::ToInt32(*v);
  if (VariantPtr v = vxcore::GetVariantInObject(o, "mFontName")) c.mFontName = json::ToU16(*v);
  c.mFontSize = Float(o, "mFontSize");
  c.mOriginX = Float(o, "mOriginX");
  c.mOriginY = Float(o, "mOriginY");
  c.mLeft = Float(o, "mLeft");
  c.mTop = Float(o, "mTop");
  c.mWidth = Float(o, "mWidth");
  c.mHeight = Float(o, "mHeight");
  c.mFillRed = Float(o, "mFillRed");
  c.mFillGreen = Float(o, "mFillGreen");
  c.mFillBlue = Float(o, "mFillBlue");
  c.mStrokeRed = Float(o, "mStrokeRed");
  c.mStrokeGreen = Float(o, "mStrokeGreen");
  c.mStrokeBlue = Float(o, "mStrokeBlue");
  c.mStrokeWidth = Float(o, "mStrokeWidth");
  c.mFillFirst = Bool(o, "mFillFirst");
  c.mBaselineShift = Float(o, "mBaselineShift");
  if (VariantPtr v = vxcore::GetVariantInObject(o, "mAlignment")) c.mAlignment = json::ToUInt32(*v);
  return c;
}

VariantPtr WriteCharacter(const CharacterRecord& c) {
  VariantPtr o = vxcore::MakeObject();
  json::AddInt(o, "mGlyphID", c.mGlyphID);
  json::AddString(o, "mFontName", c.mFontName);
  json::AddFloat(o, "mFontSize", c.mFontSize);
  json::AddFloat(o, "mOriginX", c.mOriginX);
  json::AddFloat(o, "mOriginY", c.mOriginY);
  json::AddFloat(o, "mLeft", c.mLeft);
  json::AddFloat(o, "mTop", c.mTop);
  json::AddFloat(o, "mWidth", c.mWidth);
  json::AddFloat(o, "mHeight", c.mHeight);
  json::AddFloat(o, "mFillRed", c.mFillRed);
  json::AddFloat(o, "mFillGreen", c.mFillGreen);
  json::AddFloat(o, "mFillBlue", c.mFillBlue);
  json::AddFloat(o, "mStrokeRed", c.mStrokeRed);
  json::AddFloat(o, "mStrokeGreen", c.mStrokeGreen);
  json::AddFloat(o, "mStrokeBlue", c.mStrokeBlue);
  json::AddFloat(o, "mStrokeWidth", c.mStrokeWidth);
  json::AddBool(o, "mFillFirst", c.mFillFirst);
  json::AddFloat(o, "mBaselineShift", c.mBaselineShift);
  json::AddUInt(o, "mAlignment", c.mAlignment);
  return o;
}

}  // namespace

std::u16string LayoutToTextTree(const LayoutRecord& layout, bool formatted) {
  VariantPtr chars = vxcore::MakeArray();
  for (const CharacterRecord& c : layout.mCharacters)
    vxcore::AppendToArray(chars, WriteCharacter(c));
  VariantPtr o = vxcore::MakeObject();
  vxcore::AddToObject(o, "mCharacters", chars);
  json::AddFloat(o, "mLeft", layout.mLeft);
  json::AddFloat(o, "mTop", layout.mTop);
  json::AddFloat(o, "mRight", layout.mRight);
  json::AddFloat(o, "mBottom", layout.mBottom);
  json::AddFloat(o, "mOverSampling", layout.mOverSampling);
  json::AddBool(o, "mTextInABox", layout.mTextInABox);
  return vxcore::GetJSONString(o, formatted);
}

void TextToLayoutTree(const char16_t* text, size_t length, LayoutRecord& out) {
  VariantPtr root = json::Unwrap(vxcore::JSONParse(text, length));
  if (!root) throw KTE::Error("JSON not well-formed");
  const Object& o = json::ToObject(root);
  LayoutRecord read;  // constructed with mOverSampling 4.0, which a missing key overwrites with 0
  if (VariantPtr v = vxcore::GetVariantInObject(o, "mCharacters")) {
    const vxcore::Array& a = json::ToArray(v);
    read.mCharacters.reserve(a.size());
    for (const VariantPtr& e : a) read.mCharacters.push_back(ReadCharacter(json::ToObject(e)));
  }
  read.mLeft = Float(o, "mLeft");
  read.mTop = Float(o, "mTop");
  read.mRight = Float(o, "mRight");
  read.mBottom = Float(o, "mBottom");
  read.mOverSampling = Float(o, "mOverSampling");
  read.mTextInABox = Bool(o, "mTextInABox");
  out = std::move(read);
}

// ---- streaming forms ----

namespace {

enum class Kind : uint8_t { kFloat, kInt32, kUInt32, kBool, kString, kCharacters, kWrapper };

struct FieldInfo {
  const char* key;
  size_t size;
  Kind kind;
  float CharacterRecord::*f;  // character floats
  float LayoutRecord::*lf;    // layout floats
};

#define VETEXT_CHAR_FLOAT(name) \
  { #name, sizeof(#name) - 1, Kind::kFloat, &CharacterRecord::name, nullptr }
#define VETEXT_LAYOUT_FLOAT(name) \
  { #name, sizeof(#name) - 1, Kind::kFloat, nullptr, &LayoutRecord::name }

// In the writer's order, which a reader of this module's own text meets them in.
const FieldInfo kCharacterFields[] = {
    {"mGlyphID", 8, Kind::kInt32, nullptr, nullptr},
    {"mFontName", 9, Kind::kString, nullptr, nullptr},
    VETEXT_CHAR_FLOAT(mFontSize),
    VETEXT_CHAR_FLOAT(mOriginX),
    VETEXT_CHAR_FLOAT(mOriginY),
    VETEXT_CHAR_FLOAT(mLeft),
    VETEXT_CHAR_FLOAT(mTop),
    VETEXT_CHAR_FLOAT(mWidth),
    VETEXT_CHAR_FLOAT(mHeight),
    VETEXT_CHAR_FLOAT(mFillRed),
    VETEXT_CHAR_FLOAT(mFillGreen),
    VETEXT_CHAR_FLOAT(mFillBlue),
    VETEXT_CHAR_FLOAT(mStrokeRed),
    VETEXT_CHAR_FLOAT(mStrokeGreen),
    VETEXT_CHAR_FLOAT(mStrokeBlue),
    VETEXT_CHAR_FLOAT(mStrokeWidth),
    {"mFillFirst", 10, Kind::kBool, nullptr, nullptr},
    VETEXT_CHAR_FLOAT(mBaselineShift),
    {"mAlignment", 10, Kind::kUInt32, nullptr, nullptr},
};

const FieldInfo kLayoutFields[] = {
    {"mCharacters", 11, Kind::kCharacters, nullptr, nullptr},
    VETEXT_LAYOUT_FLOAT(mLeft),
    VETEXT_LAYOUT_FLOAT(mTop),
    VETEXT_LAYOUT_FLOAT(mRight),
    VETEXT_LAYOUT_FLOAT(mBottom),
    VETEXT_LAYOUT_FLOAT(mOverSampling),
    {"mTextInABox", 11, Kind::kBool, nullptr, nullptr},
    {"SerializerWrappedObject", 23, Kind::kWrapper, nullptr, nullptr},  // at the root only
};

#undef VETEXT_CHAR_FLOAT
#undef VETEXT_LAYOUT_FLOAT

constexpr int kCharacterFieldCount = int(sizeof kCharacterFields / sizeof kCharacterFields[0]);
constexpr int kLayoutFieldCount = int(sizeof kLayoutFields / sizeof kLayoutFields[0]);

// The index of `key` in `fields`, trying `guess` first; -1 when unknown.
int FindField(const FieldInfo* fields, int count, int guess, const char* key, size_t size) {
  if (guess < count && fields[guess].size == size && std::memcmp(fields[guess].key, key, size) == 0)
    return guess;
  for (int i = 0; i < count; ++i)
    if (fields[i].size == size && std::memcmp(fields[i].key, key, size) == 0) return i;
  return -1;
}

// Number conversions of the value table (the same as the tree reader's).
int64_t SaturateToInt64(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9.2233720368547758e18) return std::numeric_limits<int64_t>::max();
  if (d <= -9.2233720368547758e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(d);
}
float NarrowToFloat(double d) {
  constexpr float kMax = std::numeric_limits<float>::max();
  if (d > kMax) return kMax;
  if (d < -kMax) return -kMax;
  return static_cast<float>(d);
}

// One number as it arrived: the 64-bit pattern for integers, the value for doubles.
struct Number {
  double real;
  uint64_t bits;
};

// The events of one layout text into a record. A member of the wrong type marks its record
// bad rather than throwing, because a text that turns out not to be well-formed must fail as
// such whatever came before; the bare root and the wrapped root are read side by side, and the
// one that counts is chosen at the end.
class LayoutReader : public vxcore::JSONHandler {
 public:
  struct Target {
    // A new record holds oversampling 4, but reading overwrites it with the missing-key value.
    Target() { record.mOverSampling = 0.0f; }
    LayoutRecord record;
    bool bad = false;
  };

  // The record that counts once the walk succeeded: the wrapped one when there was a wrapper.
  Target& Result() { return has_wrapper_ ? wrapped_ : bare_; }

  bool Null() override { return Scalar(Type::kNull, {0, 0}); }
  bool Bool(bool b) override {
    bool_ = b;
    return Scalar(Type::kBool, {0, 0});
  }
  bool Int64(int64_t i) override {
    return Scalar(Type::kNumber, {static_cast<double>(i), static_cast<uint64_t>(i)});
  }
  bool Uint64(uint64_t u) override { return Scalar(Type::kNumber, {static_cast<double>(u), u}); }
  bool Double(double d) override {
    return Scalar(Type::kNumber, {d, static_cast<uint64_t>(SaturateToInt64(d))});
  }
  bool String(const char* s, size_t n) override {
    string_ = s;
    string_size_ = n;
    return Scalar(Type::kString, {0, 0});
  }
  bool Key(const char* s, size_t n) override {
    Frame& f = stack_.back();
    if (f.kind == Frame::kLayout) {
      int i = FindField(kLayoutFields, f.root ? kLayoutFieldCount : kLayoutFieldCount - 1, f.next,
                        s, n);
      f.pending = Claim(f, i);
    } else if (f.kind == Frame::kCharacter) {
      f.pending = Claim(f, FindField(kCharacterFields, kCharacterFieldCount, f.next, s, n));
    }
    return true;
  }
  bool StartObject() override { return Container(true); }
  bool StartArray() override { return Container(false); }
  bool EndObject() override {
    stack_.pop_back();
    return true;
  }
  bool EndArray() override {
    stack_.pop_back();
    return true;
  }

 private:
  enum class Type : uint8_t { kNull, kBool, kNumber, kString, kObject, kArray };

  struct Frame {
    enum KindOf : uint8_t { kSkip, kLayout, kCharacters, kCharacter } kind;
    Target* target;
    bool root = false;
    int pending = -1;   // the field the next value belongs to; -1: ignore it
    int next = 0;       // the field expected next (the writer's order)
    uint32_t seen = 0;  // fields met so far: of duplicates, the first counts
  };

  static int Claim(Frame& f, int i) {
    if (i < 0) return -1;
    f.next = i + 1;
    if (f.seen & (1u << i)) return -1;
    f.seen |= 1u << i;
    return i;
  }

  // A value in the current context; containers are pushed by the caller as `push`.
  // Returns the frame kind a container value opens.
  Frame::KindOf Place(Type type, const Number& n) {
    if (stack_.empty()) {  // the root
      if (type == Type::kObject) return Frame::kLayout;
      bare_.bad = true;
      return Frame::kSkip;
    }
    Frame& f = stack_.back();
    switch (f.kind) {
      case Frame::kSkip:
        return Frame::kSkip;
      case Frame::kCharacters:
        if (type == Type::kObject) {
          f.target->record.mCharacters.emplace_back();
          return Frame::kCharacter;
        }
        f.target->bad = true;
        return Frame::kSkip;
      case Frame::kLayout:
      case Frame::kCharacter:
        break;
    }
    const int i = f.pending;
    f.pending = -1;
    if (i < 0) return Frame::kSkip;
    Target* t = f.target;
    const bool layout = f.kind == Frame::kLayout;
    const FieldInfo& info = layout ? kLayoutFields[i] : kCharacterFields[i];
    if (info.kind == Kind::kWrapper) {
      has_wrapper_ = true;
      if (type == Type::kObject) return Frame::kLayout;  // opened on wrapped_
      wrapped_.bad = true;
      return Frame::kSkip;
    }
    if (info.kind == Kind::kCharacters) {
      if (type == Type::kArray) return Frame::kCharacters;
      t->bad = true;
      return Frame::kSkip;
    }
    LayoutRecord& r = t->record;
    const bool ok = (info.kind == Kind::kBool)     ? type == Type::kBool
                    : (info.kind == Kind::kString) ? type == Type::kString
                                                   : type == Type::kNumber;
    if (!ok) {
      t->bad = true;
      return Frame::kSkip;
    }
    if (layout) {
      if (info.kind == Kind::kBool)
        r.mTextInABox = bool_;
      else
        r.*info.lf = NarrowToFloat(n.real);
      return Frame::kSkip;
    }
    CharacterRecord& c = r.mCharacters.back();
    switch (info.kind) {
      case Kind::kFloat:
        c.*info.f = NarrowToFloat(n.real);
        break;
      case Kind::kInt32:
        c.mGlyphID = static_cast<int32_t>(n.bits);
        break;
      case Kind::kUInt32:
        c.mAlignment = static_cast<uint32_t>(n.bits);
        break;
      case Kind::kBool:
        c.mFillFirst = bool_;
        break;
      case Kind::kString:
        // Font names repeat from glyph to glyph: convert once per change.
        if (string_size_ != last_name_utf8_.size() ||
            std::memcmp(string_, last_name_utf8_.data(), string_size_) != 0) {
          last_name_utf8_.assign(string_, string_size_);
          last_name_ = vxcore::UTF8ToUTF16(last_name_utf8_);
        }
        c.mFontName = last_name_;
        break;
      default:
        break;
    }
    return Frame::kSkip;
  }

  bool Scalar(Type type, const Number& n) {
    Place(type, n);
    return true;
  }

  bool Container(bool object) {
    const bool at_root = stack_.empty();
    Target* parent = at_root ? &bare_ : stack_.back().target;
    const bool wrapper_value = !at_root && stack_.back().root && stack_.back().pending >= 0 &&
                               kLayoutFields[stack_.back().pending].kind == Kind::kWrapper;
    Frame::KindOf kind = Place(object ? Type::kObject : Type::kArray, Number{0, 0});
    Frame f{kind, parent};
    if (kind == Frame::kLayout) {
      f.target = wrapper_value ? &wrapped_ : &bare_;
      f.root = at_root;
    }
    stack_.push_back(f);
    return true;
  }

  std::vector<Frame> stack_;
  Target bare_;
  Target wrapped_;
  bool has_wrapper_ = false;
  bool bool_ = false;
  const char* string_ = nullptr;
  size_t string_size_ = 0;
  std::string last_name_utf8_;
  std::u16string last_name_;
};

void WriteKey(vxcore::JSONWriter& w, const FieldInfo& f) {
  w.Key(f.key, f.size);
}

}  // namespace

void TextToLayout(const char16_t* text, size_t length, LayoutRecord& out) {
  LayoutReader reader;
  if (!vxcore::JSONRead(text, length, reader)) throw KTE::Error("JSON not well-formed");
  LayoutReader::Target& t = reader.Result();
  if (t.bad) throw boost::bad_any_cast();
  out = std::move(t.record);
}

std::u16string LayoutToText(const LayoutRecord& layout, bool formatted) {
  vxcore::JSONWriter w(formatted);
  const FieldInfo* cf = kCharacterFields;
  const FieldInfo* lf = kLayoutFields;
  std::u16string name;  // the last font name and its UTF-8 form: names repeat
  std::string name_utf8;
  w.StartObject();
  WriteKey(w, lf[0]);
  w.StartArray();
  for (const CharacterRecord& c : layout.mCharacters) {
    w.StartObject();
    WriteKey(w, cf[0]);
    w.Int64(c.mGlyphID);
    WriteKey(w, cf[1]);
    if (c.mFontName != name || name_utf8.empty()) {
      name = c.mFontName;
      name_utf8 = vxcore::UTF16ToUTF8(name);
    }
    w.String(name_utf8);
    for (int i = 2; i <= 15; ++i) {
      WriteKey(w, cf[i]);
      w.Double(static_cast<double>(c.*cf[i].f));
    }
    WriteKey(w, cf[16]);
    w.Bool(c.mFillFirst);
    WriteKey(w, cf[17]);
    w.Double(static_cast<double>(c.mBaselineShift));
    WriteKey(w, cf[18]);
    w.Uint64(c.mAlignment);
    w.EndObject();
  }
  w.EndArray();
  for (int i = 1; i <= 5; ++i) {
    WriteKey(w, lf[i]);
    w.Double(static_cast<double>(layout.*lf[i].lf));
  }
  WriteKey(w, lf[6]);
  w.Bool(layout.mTextInABox);
  w.EndObject();
  return w.TakeText();
}

}  // namespace vetext
