// The engine's dictionary tree: the values that the dictionary writers emit and the readers
// build, and the engine's error exception. Private to the module.
//
// Thread safety: a Value tree belongs to one thread at a time; nothing here is shared.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace SLO {

// The engine's error: the name of the component that raised it and a line number. Writers use
// a fixed line per rule (a name character out of range is line 424 of "SLOTextPDFWriter", a
// forbidden delimiter line 439); readers give the input line (1-based) where the fault was
// found, and the byte offset in `offset()`.
class Error : public std::runtime_error {
 public:
  Error(std::string source, int line, const std::string& message, int64_t offset = -1);
  const std::string& source() const { return source_; }
  int line() const { return line_; }
  // Byte offset in the input of a reader error; -1 for writer errors.
  int64_t offset() const { return offset_; }
  // The message without the source and line prefix that what() carries.
  const std::string& message() const { return message_; }

 private:
  std::string source_;
  int line_;
  int64_t offset_;
  std::string message_;
};

// Nesting limit of both readers (dictionaries and arrays together). Deeper input is refused
// rather than risking the stack.
constexpr int kMaxDepth = 256;

// One value of the tree. Only the member that `kind` names is meaningful; the others stay empty.
// Dictionaries keep their keys in the order written (and may hold a key twice when the input
// did; Find returns the first).
struct Value {
  enum class Kind : uint8_t { kBoolean, kInteger, kReal, kString, kName, kArray, kDictionary };
  struct Entry;

  Kind kind = Kind::kDictionary;
  bool boolean = false;
  int32_t integer = 0;
  float real = 0.0f;
  std::u16string string;  // kString: UTF-16 code units, any values
  std::string name;       // kName: the name's bytes, without the "/"
  std::vector<Value> array;
  std::vector<Entry> entries;  // kDictionary

  static Value Boolean(bool b);
  static Value Integer(int32_t i);
  static Value Real(float f);
  static Value String(std::u16string s);
  static Value Name(std::string n);
  static Value Array();
  static Value Array(std::vector<Value> items);
  static Value Dictionary();

  bool IsDictionary() const { return kind == Kind::kDictionary; }
  bool IsArray() const { return kind == Kind::kArray; }
  // Integer or real.
  bool IsNumber() const { return kind == Kind::kInteger || kind == Kind::kReal; }
  // The number as a double (integers exactly); 0 for anything else.
  double Number() const;

  // First entry named `key` of a dictionary; null when absent or when this is no dictionary.
  const Value* Find(std::string_view key) const;
  // Appends an entry (keys are not de-duplicated) and returns the new value.
  Value& Add(std::string key, Value v);
  // Appends an array element and returns it.
  Value& Push(Value v);

  // Deep equality; reals compare by their bits, so a NaN equals the same NaN and 0.0 is not -0.0.
  bool operator==(const Value& other) const;
};

struct Value::Entry {
  std::string key;
  Value value;
  bool operator==(const Entry& other) const = default;
};

// Name rules shared by every writer: each byte in 0x21..0x7E and none of # % ( ) / < > [ ] { }.
// Returns 0 when `c` is allowed, 424 when out of range, 439 when a forbidden delimiter (the
// line that the text writer reports).
int CheckNameUnit(char16_t c);

}  // namespace SLO
