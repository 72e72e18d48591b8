#include "engine/slo_value.h"

#include <cstring>
#include <utility>

namespace SLO {

namespace {
std::string Describe(const std::string& source, int line, const std::string& message) {
  return source + " line " + std::to_string(line) + ": " + message;
}
}  // namespace

Error::Error(std::string source, int line, const std::string& message, int64_t offset)
    : std::runtime_error(Describe(source, line, message)),
      source_(std::move(source)),
      line_(line),
      offset_(offset),
      message_(message) {}

Value Value::Boolean(bool b) {
  Value v;
  v.kind = Kind::kBoolean;
  v.boolean = b;
  return v;
}

Value Value::Integer(int32_t i) {
  Value v;
  v.kind = Kind::kInteger;
  v.integer = i;
  return v;
}

Value Value::Real(float f) {
  Value v;
  v.kind = Kind::kReal;
  v.real = f;
  return v;
}

Value Value::String(std::u16string s) {
  Value v;
  v.kind = Kind::kString;
  v.string = std::move(s);
  return v;
}

Value Value::Name(std::string n) {
  Value v;
  v.kind = Kind::kName;
  v.name = std::move(n);
  return v;
}

Value Value::Array() {
  return Array(std::vector<Value>());
}

Value Value::Array(std::vector<Value> items) {
  Value v;
  v.kind = Kind::kArray;
  v.array = std::move(items);
  return v;
}

Value Value::Dictionary() {
  return Value();
}

double Value::Number() const {
  if (kind == Kind::kInteger) return integer;
  if (kind == Kind::kReal) return real;
  return 0.0;
}

const Value* Value::Find(std::string_view key) const {
  if (kind != Kind::kDictionary) return nullptr;
  for (const Entry& e : entries)
    if (e.key == key) return &e.value;
  return nullptr;
}

Value& Value::Add(std::string key, Value v) {
  entries.push_back(Entry{std::move(key), std::move(v)});
  return entries.back().value;
}

Value& Value::Push(Value v) {
  array.push_back(std::move(v));
  return array.back();
}

bool Value::operator==(const Value& other) const {
  if (kind != other.kind) return false;
  switch (kind) {
    case Kind::kBoolean:
      return boolean == other.boolean;
    case Kind::kInteger:
      return integer == other.integer;
    case Kind::kReal:
      return std::memcmp(&real, &other.real, sizeof real) == 0;
    case Kind::kString:
      return string == other.string;
    case Kind::kName:
      return name == other.name;
    case Kind::kArray:
      return array == other.array;
    case Kind::kDictionary:
      return entries == other.entries;
  }
  return false;
}

int CheckNameUnit(char16_t c) {
  if (c < 0x21 || c > 0x7E) return 424;
  switch (c) {
    case '#':
    case '%':
    case '(':
    case ')':
    case '/':
    case '<':
    case '>':
    case '[':
    case ']':
    case '{':
    case '}':
      return 439;
    default:
      return 0;
  }
}

}  // namespace SLO
