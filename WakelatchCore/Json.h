// JSON forms of the library's records. Each record lists its fields once, in the order in which
// they are written, as `json::fields<Record>`; encode(), decode() and their errors come from that
// table. Reading is strict: a value is never turned into another kind, an unknown key is ignored.
//
// Pure functions, callable from any thread.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/Enum.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Why a text could not be decoded, and where: `what()` is "days.2025-03-01.totalSessions: expected
/// an integer", or the problem alone when it concerns the whole text.
class DecodingError : public std::runtime_error {
 public:
  ///@{
  /// The way to the value, "days.2025-03-01.totalSessions" or "targetApps[2]", empty for the whole
  /// text; and what is wrong with it.
  DecodingError(std::string path, std::string problem);
  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }
  ///@}

 private:
  std::string path_;
  std::string problem_;
};

/// How instants are written.
enum class DateCoding {
  secondsSince2001,  ///< seconds since 2001-01-01T00:00:00Z, the platform's own default; an instant
                     ///< before mid-1985 may lose its last bits
  secondsSince1970,  ///< seconds since 1970-01-01T00:00:00Z, to the last bit
  iso8601,           ///< "2025-03-01T14:05:09Z": whole seconds only
};

/// What a record needs to have a JSON form.
namespace json {

// ---------------------------------------------------------------------------------- field tables

/// One row of a record's table, made by required() or optional().
template <class Record, class Member>
struct Field {
  std::string_view key;    ///< in the JSON object
  Member Record::*member;  ///< where the value lives in the record
  bool isRequired;         ///< missing or null is an error
};

/// A field without which an object is no such record.
template <class Record, class Member>
constexpr Field<Record, Member> required(std::string_view key, Member Record::*member) {
  return {key, member, true};
}
/// A field that may be missing or null, which leaves the record's initial value. An empty
/// std::optional is not written, everything else is.
template <class Record, class Member>
constexpr Field<Record, Member> optional(std::string_view key, Member Record::*member) {
  return {key, member, false};
}

/// The fields of a record, a std::tuple of Field; specialised beside each record.
template <class Record>
inline constexpr auto fields = nullptr;

/// A type that has a table of fields.
template <class T>
concept Record = !std::is_same_v<decltype(fields<T>), const std::nullptr_t>;

// --------------------------------------------------------------------------------------- writing

/// A JSON text as it grows, without blanks.
struct Writer {
  DateCoding dates;  ///< how instants are written
  std::string text;  ///< what is written so far

  /// Appends a value or an opening bracket, after the comma that it may need.
  void add(std::string_view token);
};

///@{
/// Appends a value. There is one write() for each type that has a JSON form.
void write(Writer& out, std::same_as<bool> auto value) {  // no pointer is taken for one
  out.add(value ? "true" : "false");
}
void write(Writer& out, std::int64_t value);
void write(Writer& out, double value);            ///< throws std::domain_error unless finite
void write(Writer& out, std::string_view value);  ///< bytes that are no UTF-8 become U+FFFD
void write(Writer& out, Timestamp value);  ///< throws std::domain_error when the coding has no form
template <TabledEnum E>
void write(Writer& out, E value) {
  write(out, rawValue(value));
}
template <class T>
void write(Writer& out, const std::vector<T>& values) {
  out.add("[");
  for (const T& value : values) write(out, value);
  out.text += ']';
}
///@}

/// Appends a member of an object; an empty std::optional is left out.
template <class T>
void writeMember(Writer& out, std::string_view key, const T& value) {
  write(out, key);
  out.text += ':';
  write(out, value);
}
/// @cond
template <class T>
void writeMember(Writer& out, std::string_view key, const std::optional<T>& value) {
  if (value) writeMember(out, key, *value);
}
/// @endcond

///@{
/// Appends an object: the entries of a map in the order of their keys, the fields of a record in
/// the order of its table.
template <class T>
void write(Writer& out, const std::map<std::string, T>& values) {
  out.add("{");
  for (const auto& [key, value] : values) writeMember(out, key, value);
  out.text += '}';
}
template <Record R>
void write(Writer& out, const R& record) {
  out.add("{");
  std::apply(
      [&](const auto&... field) { (writeMember(out, field.key, record.*field.member), ...); },
      fields<R>);
  out.text += '}';
}
///@}

// --------------------------------------------------------------------------------------- reading

/// One value of a parsed text, which knows the way to it for error messages. Values share the
/// parsed text and keep it alive. The operations for one kind of value throw DecodingError for
/// another kind.
class Value {
 public:
  /// The value that a whole text describes. Throws DecodingError when the text is no JSON.
  explicit Value(std::string_view text, DateCoding dates = DateCoding::secondsSince2001);

  ///@{
  /// Of which kind the value is.
  bool isNull() const;
  bool isBoolean() const;
  bool isInteger() const;  ///< a number without fraction and exponent, within 64 bits
  bool isString() const;
  bool isArray() const;
  bool isObject() const;
  ///@}

  ///@{
  /// The value of this kind.
  bool boolean() const;
  std::int64_t integer() const;  ///< 20 or 20.0; within 64 bits
  double number() const;
  const std::string& string() const;  ///< lives as long as the value
  Timestamp timestamp() const;
  std::vector<Value> elements() const;           ///< of an array
  std::map<std::string, Value> members() const;  ///< of an object; the last one of a repeated name
  ///@}

  /// The member of an object; nothing when it is missing or null.
  std::optional<Value> member(std::string_view key) const;

  /// Throws DecodingError with the way to this value.
  [[noreturn]] void fail(std::string problem) const;
  /// Fails naming `key` inside this object, which is missing or null.
  [[noreturn]] void failMissing(std::string_view key) const;

 private:
  Value(const Value& parent, const void* node, std::string path);
  std::string pathOf(std::string_view key) const;

  std::shared_ptr<const void> node_;  ///< of the parser, which hosts need not know
  std::string path_;
  DateCoding dates_;
};

///@{
/// Reads a value over what `value` holds. There is one read() for each type that has a JSON form;
/// each throws DecodingError. A record that reads more than its table says has one of its own.
inline void read(const Value& in, bool& value) {
  value = in.boolean();
}
inline void read(const Value& in, std::int64_t& value) {
  value = in.integer();
}
inline void read(const Value& in, double& value) {
  value = in.number();
}
inline void read(const Value& in, std::string& value) {
  value = in.string();
}
inline void read(const Value& in, Timestamp& value) {
  value = in.timestamp();
}
template <class T>
void read(const Value& in, std::optional<T>& value) {
  read(in, value.emplace());
}
template <TabledEnum E>
void read(const Value& in, E& value) {
  decltype(rawValue(value)) raw;
  std::string shown;
  if constexpr (std::integral<decltype(raw)>) {
    raw = in.integer();
    shown = std::to_string(raw);
  } else {
    raw = in.string();
    shown = '"' + in.string() + '"';
  }
  const std::optional<E> found = fromRawValue<E>(raw);
  if (!found) in.fail("no such case: " + shown);
  value = *found;
}
template <class T>
void read(const Value& in, std::vector<T>& values) {
  values.clear();
  for (const Value& element : in.elements()) read(element, values.emplace_back());
}
template <class T>
void read(const Value& in, std::map<std::string, T>& values) {
  values.clear();
  for (const auto& [key, value] : in.members()) read(value, values[key]);
}
///@}

/// Reads the fields of an object over the values `record` has: the required ones first, then the
/// others, each in table order; the first that fails ends it.
/// @param table  in place of the record's own
template <class R, class Table = decltype(fields<R>)>
void readFields(const Value& object, R& record, const Table& table = fields<R>) {
  const auto readField = [&](const auto& field, bool isRequired) {
    if (field.isRequired != isRequired) return;
    const std::optional<Value> value = object.member(field.key);
    if (value) {
      read(*value, record.*field.member);
    } else if (isRequired) {
      object.failMissing(field.key);
    }
  };
  std::apply(
      [&](const auto&... field) {
        (readField(field, true), ...);
        (readField(field, false), ...);
      },
      table);
}

/// @cond
template <Record R>
void read(const Value& in, R& record) {
  record = R{};
  readFields(in, record);
}
/// @endcond

}  // namespace json

// ---------------------------------------------------------------------------------- entry points

/// The JSON text of a value. Throws std::domain_error when it holds a number or an instant that is
/// not finite, or that lies outside the years 0000 to 9999 and is to be written in ISO 8601.
template <class T>
std::string encode(const T& value, DateCoding dates = DateCoding::secondsSince2001) {
  json::Writer out{dates, {}};
  write(out, value);
  return std::move(out.text);
}

/// The value that a JSON text describes. Throws DecodingError; no part of a value is ever returned.
template <class T>
T decode(std::string_view text, DateCoding dates = DateCoding::secondsSince2001) {
  T value{};
  read(json::Value(text, dates), value);
  return value;
}

}  // namespace wakelatch
#pragma GCC visibility pop
