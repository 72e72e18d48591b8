// The JSON value model and its UTF-16 reader and writer.
//
// The reader drives RapidJSON's SAX parser straight into the boost::any tree, so no
// intermediate DOM is built: the layout of a long text (tens of thousands of members) is parsed
// on every cache hit, and each value costs one shared block and one any holder.
//
// Lone surrogates: RapidJSON rejects an escaped high surrogate that no low one follows. Such
// texts are rare, so they take a slow path: the offending escapes are rewritten to \uFFFD in a
// copy and the copy is parsed again. A raw unpaired unit, and an escaped lone low surrogate,
// come through as a single UTF-16 unit and become U+FFFD in the UTF-8 conversion.
//
// RapidJSON's asserts guard its own invariants, plus the one place above where an escaped low
// surrogate reaches its encoder; the release behaviour there (pass the unit through) is the one
// we want in every build.
#define RAPIDJSON_ASSERT(x) ((void)0)
#define RAPIDJSON_HAS_STDSTRING 0
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <typeinfo>

#include "vetext/vxcore.h"

namespace vxcore {

VariantPtr MakeVariant(Variant v) {
  return boost::make_shared<Variant>(std::move(v));
}
VariantPtr MakeObject() {
  return boost::make_shared<Variant>(Object());
}
VariantPtr MakeArray() {
  return boost::make_shared<Variant>(Array());
}

void AddToObject(const VariantPtr& object, const std::string& key, VariantPtr value) {
  if (!object) throw boost::bad_any_cast();
  boost::any_cast<Object&>(*object).emplace_back(key, std::move(value));
}

void AppendToArray(const VariantPtr& array, VariantPtr value) {
  if (!array) throw boost::bad_any_cast();
  boost::any_cast<Array&>(*array).push_back(std::move(value));
}

VariantPtr GetVariantInObject(const Object& object, const std::string& key) {
  for (const auto& member : object)
    if (member.first == key) return member.second;
  return VariantPtr();
}

namespace {

using U16 = rapidjson::UTF16<char16_t>;

// An input stream over exactly [begin, end): reads past the end see a terminator and never touch
// memory. An embedded zero unit also reads as the end to RapidJSON, so after a successful parse
// the caller checks that the whole range was consumed.
class BoundedStream {
 public:
  typedef char16_t Ch;
  BoundedStream(const Ch* begin, const Ch* end) : begin_(begin), p_(begin), end_(end) {}
  Ch Peek() const { return p_ < end_ ? *p_ : Ch(0); }
  Ch Take() { return p_ < end_ ? *p_++ : Ch(0); }
  size_t Tell() const { return static_cast<size_t>(p_ - begin_); }
  bool AtEnd() const { return p_ == end_; }
  // The text, and the unit after the last one taken: handlers look back at a number's token.
  const Ch* Begin() const { return begin_; }
  const Ch* Cursor() const { return p_; }
  // Write side: unused (no in-situ parsing), but part of the stream concept.
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch*) { return 0; }

 private:
  const Ch* begin_;
  const Ch* p_;
  const Ch* end_;
};

// ---- numbers ----
//
// RapidJSON checks the number grammar and gives integers exactly; doubles it cannot have got
// exactly are converted again here from the token. Its full-precision conversion indexes its table
// of powers of ten out of bounds for a fraction with many leading zeros ("0.000...1e-300"), and its
// normal-precision one (used for the grammar pass) is off by a few ulps, which would break the
// bit-exact round trip of written doubles. std::from_chars is correctly rounded and ignores the
// locale.

bool IsNumberUnit(char16_t c) {
  return (c >= '0' && c <= '9') || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-';
}

// Whether |x| >= 1 for a grammatical number token: how far its first significant digit sits
// from the decimal point, plus the exponent. Used only to tell overflow from underflow.
bool AtLeastOne(std::string_view t) {
  size_t k = t[0] == '-' ? 1 : 0;
  int64_t order = 0;  // digits before the point from the first nonzero one, or minus the zeros
  bool significant = false;
  for (; k < t.size() && t[k] >= '0' && t[k] <= '9'; ++k) {
    if (t[k] != '0') significant = true;
    if (significant) ++order;
  }
  if (!significant && k < t.size() && t[k] == '.') {
    for (++k; k < t.size() && t[k] == '0'; ++k) --order;
  }
  while (k < t.size() && t[k] != 'e' && t[k] != 'E') ++k;
  int64_t exp = 0;
  if (k < t.size()) {
    ++k;
    bool minus = k < t.size() && t[k] == '-';
    if (k < t.size() && (t[k] == '-' || t[k] == '+')) ++k;
    for (; k < t.size(); ++k) exp = std::min<int64_t>(exp * 10 + (t[k] - '0'), int64_t(1) << 40);
    if (minus) exp = -exp;
  }
  return order + exp > 0;
}

// Whether the parser's own value of a token is already the correctly rounded one: a significand
// of at most 15 digits (exact below 2^53, and RapidJSON accumulates it exactly) scaled by a
// power of ten within 10^22 (exact too) takes one IEEE multiplication or division, which
// rounds correctly. Most numbers of a layout text are such short decimals.
bool ParserValueIsExact(const char16_t* first, const char16_t* end) {
  int digits = 0, fraction = 0;
  bool in_fraction = false;
  const char16_t* c = first;
  if (c < end && *c == '-') ++c;
  for (; c < end && *c != 'e' && *c != 'E'; ++c) {
    if (*c == '.') {
      in_fraction = true;
      continue;
    }
    if (digits > 0 || *c != '0') ++digits;  // leading zeros add nothing to the significand
    if (in_fraction) ++fraction;
  }
  if (digits > 15) return false;
  int exp = 0;
  if (c < end) {
    ++c;
    const bool minus = c < end && *c == '-';
    if (c < end && (*c == '-' || *c == '+')) ++c;
    if (end - c > 4) return false;  // beyond any exponent that could qualify
    for (; c < end; ++c) exp = exp * 10 + (*c - '0');
    if (minus) exp = -exp;
  }
  const int p = exp - fraction;
  return p >= -22 && p <= 22;
}

// The double of the number token that ends at `end` (the parser has just taken it, so the
// token is the run of number units before `end`, and what precedes it, a bracket, comma, colon,
// space or the start, is none); `parsed` is the parser's own value. False for a value beyond
// the largest double; underflow gives a signed zero.
bool TokenDouble(const char16_t* begin, const char16_t* end, double parsed, double* out) {
  const char16_t* first = end;
  while (first > begin && IsNumberUnit(first[-1])) --first;
  const size_t n = static_cast<size_t>(end - first);
  if (n == 0) return false;
  if (ParserValueIsExact(first, end)) {
    *out = parsed;
    return true;
  }
  // Tokens are short; a long one (hundreds of digits) takes the heap.
  char small[64];
  std::string large;
  char* text = small;
  if (n > sizeof small) {
    large.resize(n);
    text = large.data();
  }
  for (size_t k = 0; k < n; ++k) text[k] = static_cast<char>(first[k]);
  const std::string_view t(text, n);
  auto r = std::from_chars(text, text + n, *out);
  if (r.ptr != text + n) return false;
  if (r.ec == std::errc::result_out_of_range) {
    if (AtLeastOne(t)) return false;
    *out = t[0] == '-' ? -0.0 : 0.0;
    return true;
  }
  return r.ec == std::errc();
}

// Builds the any tree from SAX events.
class TreeBuilder {
 public:
  typedef char16_t Ch;

  bool Null() { return Add(boost::make_shared<Variant>()); }
  bool Bool(bool b) { return Add(boost::make_shared<Variant>(b)); }
  explicit TreeBuilder(const BoundedStream& stream) : stream_(stream) {}

  bool Int(int i) { return Add(boost::make_shared<Variant>(static_cast<int64_t>(i))); }
  bool Uint(unsigned u) { return Add(boost::make_shared<Variant>(static_cast<int64_t>(u))); }
  bool Int64(int64_t i) { return Add(boost::make_shared<Variant>(i)); }
  bool Uint64(uint64_t u) {
    if (u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
      return Add(boost::make_shared<Variant>(static_cast<int64_t>(u)));
    return Add(boost::make_shared<Variant>(u));
  }
  bool Double(double parsed) {
    double d;
    return TokenDouble(stream_.Begin(), stream_.Cursor(), parsed, &d) &&
           Add(boost::make_shared<Variant>(d));
  }
  bool RawNumber(const Ch*, rapidjson::SizeType, bool) { return false; }
  bool String(const Ch* s, rapidjson::SizeType n, bool) {
    return Add(boost::make_shared<Variant>(UTF16ToUTF8(s, n)));
  }
  bool Key(const Ch* s, rapidjson::SizeType n, bool) {
    key_ = UTF16ToUTF8(s, n);
    return true;
  }
  bool StartObject() {
    if (stack_.size() >= static_cast<size_t>(kMaxJSONDepth)) return false;
    VariantPtr v = boost::make_shared<Variant>(Object());
    Object* o = boost::any_cast<Object>(v.get());
    if (!Add(std::move(v))) return false;
    stack_.push_back(Frame{o, nullptr, members_.size()});
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
    // Members wait on one shared scratch stack and move into an object of exactly their count:
    // one allocation per object instead of one per doubling.
    const Frame& f = stack_.back();
    f.object->reserve(members_.size() - f.first);
    std::move(members_.begin() + f.first, members_.end(), std::back_inserter(*f.object));
    members_.resize(f.first);
    stack_.pop_back();
    return true;
  }
  bool StartArray() {
    if (stack_.size() >= static_cast<size_t>(kMaxJSONDepth)) return false;
    VariantPtr v = boost::make_shared<Variant>(Array());
    Array* a = boost::any_cast<Array>(v.get());
    if (!Add(std::move(v))) return false;
    stack_.push_back(Frame{nullptr, a, elements_.size()});
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    const Frame& f = stack_.back();
    f.array->reserve(elements_.size() - f.first);
    std::move(elements_.begin() + f.first, elements_.end(), std::back_inserter(*f.array));
    elements_.resize(f.first);
    stack_.pop_back();
    return true;
  }

  VariantPtr TakeRoot() { return std::move(root_); }

 private:
  const BoundedStream& stream_;
  struct Frame {
    Object* object;
    Array* array;
    size_t first;  // where this container's entries start on the scratch stack
  };

  bool Add(VariantPtr v) {
    if (stack_.empty()) {
      root_ = std::move(v);
    } else if (stack_.back().object) {
      members_.emplace_back(std::move(key_), std::move(v));
      key_.clear();
    } else {
      elements_.push_back(std::move(v));
    }
    return true;
  }

  std::vector<Frame> stack_;
  Object members_;
  Array elements_;
  std::string key_;
  VariantPtr root_;
};

// Default precision: the doubles it computes are replaced (see TokenDouble).
constexpr unsigned kParseFlags = rapidjson::kParseDefaultFlags;

int HexValue(char16_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The code unit of a \uXXXX escape starting at text[i] (the backslash), or -1.
int EscapedUnit(const char16_t* text, size_t length, size_t i) {
  if (i + 6 > length || text[i] != '\\' || text[i + 1] != 'u') return -1;
  int v = 0;
  for (size_t k = 2; k < 6; ++k) {
    int h = HexValue(text[i + k]);
    if (h < 0) return -1;
    v = v * 16 + h;
  }
  return v;
}

// A copy of the text in which every escaped surrogate that is not part of an escaped pair reads
// \uFFFD (the same length, so nothing else moves). Empty when there was nothing to rewrite.
std::u16string RewriteLoneSurrogateEscapes(const char16_t* text, size_t length) {
  std::u16string out;
  for (size_t i = 0; i < length;) {
    if (text[i] != '\\') {
      ++i;
      continue;
    }
    int unit = EscapedUnit(text, length, i);
    if (unit < 0) {
      i += 2;  // some other escape (or a broken one the parser will report)
      continue;
    }
    if (unit >= 0xD800 && unit <= 0xDBFF) {
      int low = EscapedUnit(text, length, i + 6);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        i += 12;
        continue;
      }
    } else if (unit < 0xDC00 || unit > 0xDFFF) {
      i += 6;
      continue;
    }
    if (out.empty()) out.assign(text, length);
    out.replace(i + 2, 4, u"FFFD");
    i += 6;
  }
  return out;
}

VariantPtr ParseOnce(const char16_t* text, size_t length, rapidjson::ParseErrorCode* error) {
  BoundedStream stream(text, text + length);
  TreeBuilder builder(stream);
  rapidjson::GenericReader<U16, U16> reader;
  rapidjson::ParseResult ok = reader.Parse<kParseFlags>(stream, builder);
  *error = ok.Code();
  if (!ok) return VariantPtr();
  // A zero unit stops the parser as the end would; it and what follows are trailing garbage.
  if (!stream.AtEnd()) {
    *error = rapidjson::kParseErrorDocumentRootNotSingular;
    return VariantPtr();
  }
  return builder.TakeRoot();
}

// ---- writer ----

using Buffer = rapidjson::GenericStringBuffer<U16>;

template <typename W>
class TreeWriter {
 public:
  explicit TreeWriter(W& w) : w_(w) {}

  void Write(const VariantPtr& value) {
    if (!value) {
      w_.Null();
      return;
    }
    Write(*value);
  }

  void Write(const Variant& v) {
    if (v.empty()) {
      w_.Null();
    } else if (const auto* o = boost::any_cast<Object>(&v)) {
      w_.StartObject();
      for (const auto& member : *o) {
        Utf16(member.first);
        w_.Key(text_.data(), static_cast<rapidjson::SizeType>(text_.size()));
        Write(member.second);
      }
      w_.EndObject();
    } else if (const auto* a = boost::any_cast<Array>(&v)) {
      w_.StartArray();
      for (const auto& e : *a) Write(e);
      w_.EndArray();
    } else if (const auto* s = boost::any_cast<std::string>(&v)) {
      Utf16(*s);
      w_.String(text_.data(), static_cast<rapidjson::SizeType>(text_.size()));
    } else if (const auto* d = boost::any_cast<double>(&v)) {
      // JSON has no spelling for NaN or infinity; they are written as null.
      if (std::isfinite(*d))
        w_.Double(*d);
      else
        w_.Null();
    } else if (const auto* i = boost::any_cast<int64_t>(&v)) {
      w_.Int64(*i);
    } else if (const auto* u = boost::any_cast<uint64_t>(&v)) {
      w_.Uint64(*u);
    } else if (const auto* b = boost::any_cast<bool>(&v)) {
      w_.Bool(*b);
    } else {
      throw boost::bad_any_cast();
    }
  }

 private:
  // Strings are held as UTF-8; invalid bytes become U+FFFD here so the output is always valid.
  void Utf16(const std::string& s) { text_ = UTF8ToUTF16(s.data(), s.size()); }

  W& w_;
  std::u16string text_;
};

}  // namespace

VariantPtr JSONParse(const char16_t* text, size_t length) {
  if (!text) return VariantPtr();
  rapidjson::ParseErrorCode error;
  VariantPtr root = ParseOnce(text, length, &error);
  if (root || error != rapidjson::kParseErrorStringUnicodeSurrogateInvalid) return root;
  std::u16string fixed = RewriteLoneSurrogateEscapes(text, length);
  if (fixed.empty()) return VariantPtr();
  return ParseOnce(fixed.data(), fixed.size(), &error);
}

std::u16string GetJSONString(const VariantPtr& value, bool formatted) {
  Buffer buffer;
  if (formatted) {
    rapidjson::PrettyWriter<Buffer, U16, U16> w(buffer);
    w.SetIndent(' ', 2);
    TreeWriter<decltype(w)>(w).Write(value);
  } else {
    rapidjson::Writer<Buffer, U16, U16> w(buffer);
    TreeWriter<decltype(w)>(w).Write(value);
  }
  // The buffer counts bytes, not units.
  return std::u16string(buffer.GetString(), buffer.GetSize() / sizeof(char16_t));
}

// ---- streaming ----

JSONHandler::~JSONHandler() = default;

namespace {

// UTF-16 to UTF-8 into a reused buffer; ASCII (every key and most strings) widens in place.
void AssignUtf8(std::string& out, const char16_t* s, size_t n) {
  out.resize(n);
  for (size_t i = 0; i < n; ++i) {
    if (s[i] >= 0x80) {
      out = UTF16ToUTF8(s, n);
      return;
    }
    out[i] = static_cast<char>(s[i]);
  }
}

void AssignUtf16(std::u16string& out, const char* s, size_t n) {
  out.resize(n);
  for (size_t i = 0; i < n; ++i) {
    if (static_cast<unsigned char>(s[i]) >= 0x80) {
      out = UTF8ToUTF16(s, n);
      return;
    }
    out[i] = static_cast<char16_t>(s[i]);
  }
}

// A bounded stream that also mends escaped lone surrogates as it goes, so that a handler sees
// each event once: when an escape names a surrogate that is not half of an escaped pair, the
// parser is fed "uFFFD" from a side buffer in place of its four digits (the rule JSONParse
// applies by rewriting a copy). Only the backslash of an escape start is examined.
class MendingStream {
 public:
  typedef char16_t Ch;
  MendingStream(const Ch* begin, const Ch* end)
      : begin_(begin), p_(begin), end_(end), text_end_(end) {}
  Ch Peek() {
    if (p_ == end_ && !Resume()) return Ch(0);
    return *p_;
  }
  Ch Take() {
    if (p_ == end_ && !Resume()) return Ch(0);
    Ch c = *p_++;
    if (c == '\\') {
      if (skip_backslash_)
        skip_backslash_ = false;
      else
        OnEscape();
    }
    return c;
  }
  size_t Tell() const { return static_cast<size_t>((mending_ ? resume_ : p_) - begin_); }
  bool AtEnd() const { return !mending_ && p_ == end_; }
  // As BoundedStream's. Numbers are never inside a mended escape, so p_ is in the text then.
  const Ch* Begin() const { return begin_; }
  const Ch* Cursor() const { return mending_ ? resume_ : p_; }
  Ch* PutBegin() { return nullptr; }
  void Put(Ch) {}
  void Flush() {}
  size_t PutEnd(Ch*) { return 0; }

 private:
  bool Resume() {
    if (!mending_) return false;
    mending_ = false;
    p_ = resume_;
    end_ = text_end_;
    return p_ != end_;
  }
  // p_ is on the unit after an escape's backslash.
  void OnEscape() {
    if (mending_) return;  // inside "uFFFD": no backslash there
    const size_t length = static_cast<size_t>(text_end_ - begin_);
    const size_t at = static_cast<size_t>(p_ - begin_) - 1;
    if (p_ < text_end_ && *p_ == '\\') {
      skip_backslash_ = true;  // an escaped backslash starts nothing
      return;
    }
    const int unit = EscapedUnit(begin_, length, at);
    if (unit < 0xD800 || unit > 0xDFFF) return;
    if (unit <= 0xDBFF) {
      const int low = EscapedUnit(begin_, length, at + 6);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        skip_backslash_ = true;  // the pair's second backslash is no escape start of its own
        return;
      }
    }
    mending_ = true;
    resume_ = p_ + 5;
    p_ = kMended;
    end_ = kMended + 5;
  }

  static constexpr Ch kMended[6] = u"uFFFD";
  const Ch* begin_;
  const Ch* p_;
  const Ch* end_;
  const Ch* text_end_;
  const Ch* resume_ = nullptr;
  bool mending_ = false;
  bool skip_backslash_ = false;
};

// RapidJSON's SAX events to a JSONHandler, in the number kinds and depth limit of the tree.
class Forwarder {
 public:
  typedef char16_t Ch;
  Forwarder(JSONHandler& h, const MendingStream& stream) : h_(h), stream_(stream) {}

  bool Null() { return h_.Null(); }
  bool Bool(bool b) { return h_.Bool(b); }
  bool Int(int i) { return h_.Int64(i); }
  bool Uint(unsigned u) { return h_.Int64(static_cast<int64_t>(u)); }
  bool Int64(int64_t i) { return h_.Int64(i); }
  bool Uint64(uint64_t u) {
    if (u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
      return h_.Int64(static_cast<int64_t>(u));
    return h_.Uint64(u);
  }
  bool Double(double parsed) {
    double d;
    return TokenDouble(stream_.Begin(), stream_.Cursor(), parsed, &d) && h_.Double(d);
  }
  bool RawNumber(const Ch*, rapidjson::SizeType, bool) { return false; }
  bool String(const Ch* s, rapidjson::SizeType n, bool) {
    AssignUtf8(text_, s, n);
    return h_.String(text_.data(), text_.size());
  }
  bool Key(const Ch* s, rapidjson::SizeType n, bool) {
    AssignUtf8(text_, s, n);
    return h_.Key(text_.data(), text_.size());
  }
  bool StartObject() { return Enter() && h_.StartObject(); }
  bool EndObject(rapidjson::SizeType) {
    --depth_;
    return h_.EndObject();
  }
  bool StartArray() { return Enter() && h_.StartArray(); }
  bool EndArray(rapidjson::SizeType) {
    --depth_;
    return h_.EndArray();
  }

 private:
  bool Enter() { return depth_ < kMaxJSONDepth && ++depth_ > 0; }

  JSONHandler& h_;
  const MendingStream& stream_;
  int depth_ = 0;
  std::string text_;
};

}  // namespace

bool JSONRead(const char16_t* text, size_t length, JSONHandler& handler) {
  if (!text) return false;
  MendingStream stream(text, text + length);
  Forwarder forwarder(handler, stream);
  rapidjson::GenericReader<U16, U16> reader;
  if (!reader.Parse<kParseFlags>(stream, forwarder)) return false;
  // A zero unit stops the parser as the end would; it and what follows are trailing garbage.
  return stream.AtEnd();
}

struct JSONWriter::Impl {
  explicit Impl(bool pretty) : formatted(pretty), compact(buffer), indented(buffer) {
    indented.SetIndent(' ', 2);
  }
  template <typename F>
  void Do(F&& f) {
    if (formatted)
      f(indented);
    else
      f(compact);
  }
  bool formatted;
  Buffer buffer;
  rapidjson::Writer<Buffer, U16, U16> compact;
  rapidjson::PrettyWriter<Buffer, U16, U16> indented;
  std::u16string text;
};

JSONWriter::JSONWriter(bool formatted) : impl_(new Impl(formatted)) {}
JSONWriter::~JSONWriter() {
  delete impl_;
}

void JSONWriter::Null() {
  impl_->Do([](auto& w) { w.Null(); });
}
void JSONWriter::Bool(bool b) {
  impl_->Do([b](auto& w) { w.Bool(b); });
}
void JSONWriter::Int64(int64_t i) {
  impl_->Do([i](auto& w) { w.Int64(i); });
}
void JSONWriter::Uint64(uint64_t u) {
  impl_->Do([u](auto& w) { w.Uint64(u); });
}
void JSONWriter::Double(double d) {
  // JSON has no spelling for NaN or infinity; they are written as null, as the tree writer does.
  if (std::isfinite(d))
    impl_->Do([d](auto& w) { w.Double(d); });
  else
    Null();
}
void JSONWriter::String(const char* utf8, size_t size) {
  AssignUtf16(impl_->text, utf8, size);
  const std::u16string& t = impl_->text;
  impl_->Do([&t](auto& w) { w.String(t.data(), static_cast<rapidjson::SizeType>(t.size())); });
}
void JSONWriter::Key(const char* utf8, size_t size) {
  AssignUtf16(impl_->text, utf8, size);
  const std::u16string& t = impl_->text;
  impl_->Do([&t](auto& w) { w.Key(t.data(), static_cast<rapidjson::SizeType>(t.size())); });
}
void JSONWriter::StartObject() {
  impl_->Do([](auto& w) { w.StartObject(); });
}
void JSONWriter::EndObject() {
  impl_->Do([](auto& w) { w.EndObject(); });
}
void JSONWriter::StartArray() {
  impl_->Do([](auto& w) { w.StartArray(); });
}
void JSONWriter::EndArray() {
  impl_->Do([](auto& w) { w.EndArray(); });
}

std::u16string JSONWriter::TakeText() {
  Buffer& b = impl_->buffer;
  std::u16string out(b.GetString(), b.GetSize() / sizeof(char16_t));
  b.Clear();
  impl_->compact.Reset(b);
  impl_->indented.Reset(b);
  return out;
}

}  // namespace vxcore
