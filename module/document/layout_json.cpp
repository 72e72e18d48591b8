// The layout record's JSON form. Missing members read as zero, false or empty; the layout is
// written by this module only, so the reader keeps to what the writer produces.
#include "document/layout_json.h"

#include <boost/any.hpp>

#include "document/document_json.h"
#include "engine/kte.h"

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

std::u16string LayoutToText(const LayoutRecord& layout, bool formatted) {
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

void TextToLayout(const char16_t* text, size_t length, LayoutRecord& out) {
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

}  // namespace vetext
