// The JSON form of the library's records. Each record lists its fields once, in the order in which
// they are written, as `json::fields<Record>`; encode() and decode() work from that table. Reading
// is strict: values are not converted to another kind. Unknown keys are ignored.
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

/// Why a text could not be decoded, and where. `what()` gives both, such as
/// "days.2025-03-01.totalSessions: expected an integer"; or the problem alone if it concerns the
/// whole text.
class DecodingError : public std::runtime_error {
 public:
  ///@{
  /// The path of the value, such as "days.2025-03-01.totalSessions" or "targetApps[2]", empty for
  /// the whole text; and what is wrong with the value.
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
  secondsSince2001,  ///< seconds since 2001-01-01T00:00:00Z, the platform's own default; not exact
                     ///< to the last bit for instants before mid-1985
  secondsSince1970,  ///< seconds since 1970-01-01T00:00:00Z, exact
  iso8601,           ///< "2025-03-01T14:05:09Z": whole seconds only
};

/// What a type needs to have a JSON form.
namespace json {

// ---------------------------------------------------------------------------------- field tables

/// One row of a record's table, made by required() or optional().
template <class Record, class Member>
struct Field {
  std::string_view key;    ///< key in the JSON object
  Member Record::*member;  ///< the record's member with the value
  bool isRequired;         ///< whether a missing or null value is an error
};

/// A field that every object must have.
template <class Record, class Member>
constexpr Field<Record, Member> required(std::string_view key, Member Record::*member) {
  return {key, member, true};
}
/// A field that may be missing or null; the record then keeps its initial value. Written unless it
/// is an empty std::optional.
template <class Record, class Member>
constexpr Field<Record, Member> optional(std::string_view key, Member Record::*member) {
  return {key, member, false};
}

/// The table of a record: a std::tuple of Field, specialised beside each record.
template <class Record>
inline constexpr auto fields = nullptr;

/// A type that has a table of fields.
template <class T>
concept Record = !std::is_same_v<decltype(fields<T>), const std::nullptr_t>;

// --------------------------------------------------------------------------------------- writing

/// A JSON text under construction, without white space.
struct Writer {
  DateCoding dates;  ///< how instants are written
  std::string text;  ///< the text written so far

  /// Appends a value or an opening bracket, with a comma before it if needed.
  void add(std::string_view token);
};

///@{
/// Appends a value. There is one write() for each type that has a JSON form.
void write(Writer& out, std::same_as<bool> auto value) {  // a pointer would convert to bool
  out.add(value ? "true" : "false");
}
void write(Writer& out, std::int64_t value);
void write(Writer& out, double value);            ///< throws std::domain_error unless finite
void write(Writer& out, std::string_view value);  ///< invalid UTF-8 becomes U+FFFD
void write(Writer& out, Timestamp value);         ///< throws std::domain_error, see encode()
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

/// Appends a member of an object; omits an empty std::optional.
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
/// Appends an object: the entries of a map by ascending key, the fields of a record in the order of
/// its table.
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

/// One value of a parsed text, with its path for error messages. Values share the parsed text and
/// keep it alive. The accessors of one kind throw DecodingError for a value of another kind.
class Value {
 public:
  /// Parses a whole text. Throws DecodingError if it is not valid JSON.
  explicit Value(std::string_view text, DateCoding dates = DateCoding::secondsSince2001);

  ///@{
  /// Whether the value is of this kind.
  bool isNull() const;
  bool isBoolean() const;
  bool isInteger() const;  ///< a number without fraction and exponent, within 64 bits
  bool isString() const;
  bool isArray() const;
  bool isObject() const;
  ///@}

  ///@{
  /// The value, which has to be of this kind.
  bool boolean() const;
  std::int64_t integer() const;  ///< also of a number such as 20.0; within 64 bits
  double number() const;
  const std::string& string() const;  ///< lives as long as the value
  Timestamp timestamp() const;
  std::vector<Value> elements() const;           ///< of an array
  std::map<std::string, Value> members() const;  ///< of an object; of equal keys the last one
  ///@}

  /// The member of an object; absent if it is missing or null.
  std::optional<Value> member(std::string_view key) const;

  /// Throws DecodingError with the path of this value.
  [[noreturn]] void fail(std::string problem) const;
  /// Throws DecodingError for the missing or null member `key` of this object.
  [[noreturn]] void failMissing(std::string_view key) const;

 private:
  Value(const Value& parent, const void* node, std::string path);
  std::string pathOf(std::string_view key) const;

  std::shared_ptr<const void> node_;  ///< the parser's node, without exposing the parser's headers
  std::string path_;
  DateCoding dates_;
};

///@{
/// Replaces `value` by the one read. There is one read() for each type that has a JSON form; each
/// throws DecodingError. A record that needs more than its table has a read() of its own.
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

/// Replaces the fields of `record` that the object has: required fields first, then the others,
/// both in table order. The first failure throws DecodingError.
/// @param table  used in place of the record's own table
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

/// The JSON text of a value. Throws std::domain_error if a number or an instant is not finite, or
/// if an instant to be written in ISO 8601 lies outside the years 0000 to 9999.
template <class T>
std::string encode(const T& value, DateCoding dates = DateCoding::secondsSince2001) {
  json::Writer out{dates, {}};
  write(out, value);
  return std::move(out.text);
}

/// The value that a JSON text describes. Throws DecodingError unless the whole text can be decoded.
template <class T>
T decode(std::string_view text, DateCoding dates = DateCoding::secondsSince2001) {
  T value{};
  read(json::Value(text, dates), value);
  return value;
}

}  // namespace wakelatch
#pragma GCC visibility pop
