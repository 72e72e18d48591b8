// `vetext dict`: the engine's dictionary format from the command line. `encode` turns a JSON
// tree into the text (or binary) form, `decode` turns either form back into JSON, `from-doc`
// writes a text document as its dictionary and `to-doc` reads one back into a document.
//
// JSON mapping: objects are dictionaries (keys in order), arrays, strings, integers (numbers
// without "." or exponent, signed 32-bit), reals (any other number, single precision),
// booleans; a name is the object {"/": "Name"}. Reals that are not finite appear as NaN,
// Infinity and -Infinity, which encode accepts back.
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "doc_options.h"
#include "document/document_json.h"
#include "engine/document_dict.h"
#include "engine/kte.h"
#include "engine/slo_binary.h"
#include "engine/slo_text.h"
#include "files.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

using JsonDoc = rapidjson::GenericDocument<rapidjson::UTF16<char16_t>>;
using JsonValue = rapidjson::GenericValue<rapidjson::UTF16<char16_t>>;
using SLO::Value;

// The whole input ("" or "-": standard input), at most the size a dictionary may have.
std::string ReadInput(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::string error;
  if (!ReadInputFile(path, kMaxDocumentFileBytes, &bytes, &error)) throw std::runtime_error(error);
  return std::string(bytes.begin(), bytes.end());
}

// JSON output ends with a newline for the terminal; dictionary bytes go out exactly as the format
// has them, so that a redirected file is a dictionary.
int WriteOutput(const std::vector<uint8_t>& bytes, bool newline) {
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  if (newline) std::fputc('\n', stdout);
  return std::fflush(stdout) == 0 ? 0 : Fail("cannot write standard output");
}

// ---- JSON -> tree --------------------------------------------------------------------------

std::string NameBytes(const char16_t* s, size_t n, const std::string& what) {
  std::string out;
  for (size_t i = 0; i < n; ++i) {
    int line = SLO::CheckNameUnit(s[i]);
    if (line != 0)
      throw std::runtime_error(
          what + " \"" + vxcore::UTF16ToUTF8(s, n) + "\" is not a valid name (" +
          (line == 424 ? "character out of range" : "holds a delimiter") + ")");
    out.push_back(static_cast<char>(s[i]));
  }
  if (out.empty()) throw std::runtime_error(what + " is empty");
  return out;
}

Value FromJson(const JsonValue& j, int depth) {
  if (depth > SLO::kMaxDepth)
    throw std::runtime_error("JSON nests deeper than the dictionary limit");
  switch (j.GetType()) {
    case rapidjson::kNullType:
      throw std::runtime_error("null has no dictionary form");
    case rapidjson::kFalseType:
    case rapidjson::kTrueType:
      return Value::Boolean(j.GetBool());
    case rapidjson::kStringType:
      return Value::String(std::u16string(j.GetString(), j.GetStringLength()));
    case rapidjson::kNumberType: {
      if (j.IsDouble()) {
        double d = j.GetDouble();
        char json_real[32];
        if (std::isfinite(d) && std::fabs(d) > FLT_MAX)
          throw std::runtime_error(
              "real " +
              std::string(json_real, std::snprintf(json_real, sizeof json_real, "%g", d)) +
              " is beyond single precision");
        return Value::Real(static_cast<float>(d));
      }
      if (!j.IsInt()) throw std::runtime_error("integer beyond 32 bits (write it as a real)");
      return Value::Integer(j.GetInt());
    }
    case rapidjson::kArrayType: {
      Value a = Value::Array();
      for (const JsonValue& item : j.GetArray()) a.Push(FromJson(item, depth + 1));
      return a;
    }
    case rapidjson::kObjectType: {
      if (j.MemberCount() == 1 && j.MemberBegin()->name.GetStringLength() == 1 &&
          j.MemberBegin()->name.GetString()[0] == u'/') {
        const JsonValue& n = j.MemberBegin()->value;
        if (!n.IsString()) throw std::runtime_error("a name {\"/\": ...} must hold a string");
        return Value::Name(NameBytes(n.GetString(), n.GetStringLength(), "name"));
      }
      Value d = Value::Dictionary();
      for (const auto& m : j.GetObject())
        d.Add(NameBytes(m.name.GetString(), m.name.GetStringLength(), "key"),
              FromJson(m.value, depth + 1));
      return d;
    }
  }
  throw std::runtime_error("unknown JSON value");
}

// ---- tree -> JSON --------------------------------------------------------------------------

using JsonWriter =
    rapidjson::PrettyWriter<rapidjson::StringBuffer, rapidjson::UTF16<char16_t>, rapidjson::UTF8<>>;

// Strings may hold unpaired surrogates, which UTF-8 cannot carry; they become U+FFFD.
std::u16string Printable(const std::u16string& s) {
  std::u16string out = s;
  for (size_t i = 0; i < out.size(); ++i) {
    char16_t c = out[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < out.size() && out[i + 1] >= 0xDC00 &&
        out[i + 1] <= 0xDFFF) {
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      out[i] = 0xFFFD;
    }
  }
  return out;
}

void ToJson(const Value& v, JsonWriter& w) {
  switch (v.kind) {
    case Value::Kind::kBoolean:
      w.Bool(v.boolean);
      break;
    case Value::Kind::kInteger:
      w.Int(v.integer);
      break;
    case Value::Kind::kReal: {
      // The shortest text that reads back to the same float, always with "." or an exponent
      // so that it stays a real.
      std::string s;
      if (std::isnan(v.real)) {
        s = "NaN";
      } else if (std::isinf(v.real)) {
        s = v.real < 0 ? "-Infinity" : "Infinity";
      } else {
        char buf[64];
        auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v.real);
        s.assign(buf, ec == std::errc() ? end : buf);
        if (s.find_first_of(".e") == std::string::npos) s += ".0";
      }
      std::u16string u(s.begin(), s.end());
      w.RawValue(u.data(), u.size(), rapidjson::kNumberType);
      break;
    }
    case Value::Kind::kString: {
      const std::u16string s = Printable(v.string);
      w.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
      break;
    }
    case Value::Kind::kName: {
      const std::u16string n(v.name.begin(), v.name.end());
      w.StartObject();
      w.Key(u"/");
      w.String(n.data(), static_cast<rapidjson::SizeType>(n.size()));
      w.EndObject();
      break;
    }
    case Value::Kind::kArray:
      w.StartArray();
      for (const Value& item : v.array) ToJson(item, w);
      w.EndArray();
      break;
    case Value::Kind::kDictionary:
      w.StartObject();
      for (const Value::Entry& e : v.entries) {
        const std::u16string k(e.key.begin(), e.key.end());
        w.Key(k.data(), static_cast<rapidjson::SizeType>(k.size()));
        ToJson(e.value, w);
      }
      w.EndObject();
      break;
  }
}

Value ParseDictionary(const std::string& bytes, bool binary) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  if (binary || SLO::BinaryPDFReader::HasMagic(data, bytes.size())) {
    SLO::BinaryPDFReader reader(data, bytes.size());
    return reader.Parse();
  }
  SLO::TextPDFReader reader(data, bytes.size());
  return reader.Parse();
}

// ---- commands ------------------------------------------------------------------------------

struct DictArgs {
  std::string input;
  int precision = SLO::TextPDFWriter::kDefaultPrecision;
  bool line_mode = false;
  bool binary = false;
  DocumentOptions doc;
  std::string block_in;
  std::string block_out;
  bool pretty = false;
};

std::vector<uint8_t> WriteValue(const Value& tree, const DictArgs& a) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  if (a.binary) {
    SLO::BinaryPDFWriter writer(sink);
    SLO::WriteTree(writer, tree);
  } else {
    SLO::TextPDFWriter writer(sink, a.precision, a.line_mode);
    SLO::WriteTree(writer, tree);
  }
  return out;
}

// A failure in the user's words: a reader's error names the input and the byte where reading
// stopped, a writer's what could not be written; neither names the engine's classes.
int FailWith(const std::string& input, const std::exception& e) {
  const auto* slo = dynamic_cast<const SLO::Error*>(&e);
  if (slo == nullptr) return Fail(e.what());
  const std::string name = input.empty() || input == "-" ? "standard input" : "'" + input + "'";
  if (slo->offset() < 0) return Fail("cannot write the dictionary: " + slo->message());
  return Fail("cannot read the dictionary in " + name + ": " + slo->message() + " at byte " +
              std::to_string(slo->offset()));
}

int RunEncode(const DictArgs& a) {
  try {
    const std::string text = ReadInput(a.input);
    JsonDoc json;
    json.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseNanAndInfFlag |
                   rapidjson::kParseValidateEncodingFlag,
               rapidjson::UTF8<>>(text.data(), text.size());
    if (json.HasParseError())
      return Fail(std::string("JSON not well-formed: ") +
                  rapidjson::GetParseError_En(json.GetParseError()) + " at byte " +
                  std::to_string(json.GetErrorOffset()));
    return WriteOutput(WriteValue(FromJson(json, 0), a), false);  // the format's exact bytes
  } catch (const std::exception& e) {
    return FailWith(a.input, e);
  }
}

int RunDecode(const DictArgs& a) {
  try {
    const Value tree = ParseDictionary(ReadInput(a.input), a.binary);
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    writer.SetIndent(' ', 2);
    ToJson(tree, writer);
    const char* s = buffer.GetString();
    return WriteOutput(std::vector<uint8_t>(s, s + buffer.GetSize()), true);
  } catch (const std::exception& e) {
    return FailWith(a.input, e);
  }
}

int RunFromDoc(DictArgs a) {
  try {
    if (!a.block_in.empty()) a.doc.block_in = a.block_in;
    KTE::Document doc;
    doc.data = BuildDocument(a.doc);
    std::vector<uint8_t> out = a.binary ? KTE::WriteDocumentBinary(doc)
                                        : KTE::WriteDocumentText(doc, a.precision, a.line_mode);
    return WriteOutput(out, false);  // the format's exact bytes
  } catch (const std::exception& e) {
    return FailWith(a.input, e);
  }
}

int RunToDoc(const DictArgs& a) {
  try {
    const KTE::DocumentPtr doc =
        KTE::DocumentFromDictionary(ParseDictionary(ReadInput(a.input), a.binary));
    if (!a.block_out.empty()) {
      const std::vector<uint8_t> block = KTE::WriteDocument(*doc);
      std::string error;
      return WriteOutputFile(a.block_out, block.data(), block.size(), &error) ? 0 : Fail(error);
    }
    const std::string json = vxcore::UTF16ToUTF8(vetext::DocumentToText(doc->data, a.pretty));
    return WriteOutput(std::vector<uint8_t>(json.begin(), json.end()), true);
  } catch (const std::exception& e) {
    return FailWith(a.input, e);
  }
}

void Register(CLI::App& app) {
  CLI::App* dict = app.add_subcommand("dict", "Convert the engine's dictionary format.");
  dict->require_subcommand(1);

  auto enc = std::make_shared<DictArgs>();
  CLI::App* encode = dict->add_subcommand(
      "encode",
      "JSON tree (UTF-8) -> dictionary text on standard output ({\"/\": \"N\"} is a name).");
  encode->add_option("--precision", enc->precision, "Decimal places of reals (0..5)")
      ->check(CLI::Range(0, 5));
  encode->add_flag("--line-mode", enc->line_mode, "One key and its value a line outside arrays");
  encode->add_flag("--binary", enc->binary, "Write the binary form instead");
  encode->add_option("input", enc->input, "JSON file, or - for standard input (the default)");
  encode->final_callback([enc]() { SetExitStatus(RunEncode(*enc)); });

  auto dec = std::make_shared<DictArgs>();
  CLI::App* decode =
      dict->add_subcommand("decode", "Dictionary text or binary -> JSON tree on standard output.");
  decode->add_flag("--binary", dec->binary,
                   "The input is the binary form (found by its header otherwise)");
  decode->add_option("input", dec->input, "Dictionary file, or - for standard input (the default)");
  decode->final_callback([dec]() { SetExitStatus(RunDecode(*dec)); });

  auto from = std::make_shared<DictArgs>();
  from->line_mode = true;
  CLI::App* from_doc = dict->add_subcommand(
      "from-doc",
      "Write a text document as its engine dictionary (the default document unless "
      "options say otherwise).");
  AddDocumentOptions(*from_doc, from->doc);
  from_doc->add_option("--block", from->block_in, "Start from a document block file")
      ->check(CLI::ExistingFile);
  from_doc->add_option("--precision", from->precision, "Decimal places of reals (0..5)")
      ->check(CLI::Range(0, 5));
  from_doc->add_flag("!--no-line-mode", from->line_mode, "Separate every token by a space");
  from_doc->add_flag("--binary", from->binary, "Write the binary form instead");
  from_doc->final_callback([from]() { SetExitStatus(RunFromDoc(*from)); });

  auto to = std::make_shared<DictArgs>();
  CLI::App* to_doc = dict->add_subcommand(
      "to-doc", "Read a document dictionary (text or binary) and print its JSON document record.");
  to_doc->add_flag("--binary", to->binary,
                   "The input is the binary form (found by its header otherwise)");
  to_doc->add_option("--block", to->block_out, "Write the document block to FILE instead");
  to_doc->add_flag("--pretty", to->pretty, "Indent the JSON");
  to_doc->add_option("input", to->input, "Dictionary file, or - for standard input (the default)");
  to_doc->final_callback([to]() { SetExitStatus(RunToDoc(*to)); });
}

const Registrar registrar("dict", 70, Register);

}  // namespace
}  // namespace vetext_tool
