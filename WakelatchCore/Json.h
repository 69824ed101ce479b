// JSON forms of the library's records. Each record lists its fields once, in encoding order, as
// `jsonFields<Record>`; encode(), decode() and their errors come from that table. Reading is
// strict: a value is never turned into another kind, an unknown key is ignored.
//
// Pure functions, callable from any thread.
#pragma once

#include <cstdint>
#include <map>
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

/// How instants are written. The numeric forms keep every bit.
enum class DateCoding {
  secondsSince2001,  ///< seconds since 2001-01-01T00:00:00Z, the platform's own default
  secondsSince1970,  ///< seconds since 1970-01-01T00:00:00Z
  iso8601,           ///< "2025-03-01T14:05:09Z": whole seconds only
};

// ---------------------------------------------------------------------------------- field tables

/// How a field is written, and what becomes of it when the JSON object lacks it.
enum class Presence {
  required,   ///< always written; missing or null is an error
  defaulted,  ///< always written; missing or null leaves the record's initial value
  optional,   ///< an std::optional: written when present; missing or null means absent
};

/// One row of a record's table, made by required(), defaulted() or optional().
template <class Record, class Member>
struct JsonField {
  std::string_view key;    ///< in the JSON object
  Member Record::*member;  ///< where the value lives in the record
  Presence presence;       ///< std::optional members are Presence::optional and no others
};

///@{
/// The rows of a table, one function for each Presence.
template <class Record, class Member>
constexpr JsonField<Record, Member> required(std::string_view key, Member Record::*member) {
  return {key, member, Presence::required};
}
template <class Record, class Member>
constexpr JsonField<Record, Member> defaulted(std::string_view key, Member Record::*member) {
  return {key, member, Presence::defaulted};
}
template <class Record, class Member>
constexpr JsonField<Record, std::optional<Member>> optional(std::string_view key,
                                                            std::optional<Member> Record::*member) {
  return {key, member, Presence::optional};
}
///@}

/// The fields of a record, a std::tuple of JsonField; specialised beside each record.
template <class Record>
inline constexpr auto jsonFields = nullptr;

/// A type that has a table of fields.
template <class T>
concept JsonRecord = !std::is_same_v<decltype(jsonFields<T>), const std::nullptr_t>;

// --------------------------------------------------------------------------------------- writing

/// Appends JSON text to a string, without blanks. The caller keeps objects and lists balanced.
class JsonWriter {
 public:
  /// @param out  appended to, and used as long as the writer is
  JsonWriter(std::string& out, DateCoding dates) : out_(out), dates_(dates) {}

  ///@{
  /// A value: of a list, of a key just written, or the whole text. Commas come by themselves.
  void write(bool value);
  void write(std::int64_t value);
  void write(double value);            ///< throws std::domain_error unless finite
  void write(std::string_view value);  ///< bytes that are no UTF-8 become U+FFFD
  void write(const char* value) { write(std::string_view(value)); }  // a pointer is no bool
  void write(Timestamp value);  ///< throws std::domain_error when the coding has no form
  ///@}
  /// The name of an object's member; its value follows.
  void key(std::string_view key);
  ///@{
  /// Brackets around members or elements.
  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginList() { open('['); }
  void endList() { close(']'); }
  ///@}

 private:
  void literal(std::string_view text);
  void open(char bracket);
  void close(char bracket);
  void separate();

  std::string& out_;
  DateCoding dates_;
  bool needsComma_ = false;
};

// --------------------------------------------------------------------------------------- reading

/// One value of a parsed text. The values of a text stand in one sequence: directly after a list or
/// an object comes what it holds, so that no depth of nesting costs stack.
struct JsonNode {
  /// An integer is a number without fraction and exponent that fits 64 bits.
  enum class Kind : char { null, boolean, integer, number, text, list, object };

  ///@{
  /// Which of the values counts, and the values.
  Kind kind = Kind::null;
  bool boolean = false;
  std::int64_t integer = 0;
  double number = 0;  ///< of an integer too
  std::string text;   ///< a text, or the digits of a number that a date may need to the last
  ///@}
  std::string key;         ///< the name of an object's member
  std::size_t extent = 1;  ///< how many nodes it takes up: itself and all that it holds
};

/// A value inside a parsed text, knowing the way to it for error messages. It refers to the
/// document and to the values around it, and is used while they live.
class JsonValue {
 public:
  /// The value at the root; JsonDocument::root() makes it.
  JsonValue(const JsonNode& node, DateCoding dates) : node_(node), dates_(dates) {}

  /// What the value is.
  JsonNode::Kind kind() const { return node_.kind; }
  ///@{
  /// The value as this kind; throws DecodingError when it is of another.
  bool boolean() const;
  std::int64_t integer() const;  ///< 20 or 20.0; within 64 bits
  double number() const;
  const std::string& text() const;
  Timestamp timestamp() const;
  ///@}

  /// Calls `use(value)` with the member's value; false when there is none or it is null. Of members
  /// that share a name the last one counts.
  template <class Use>
  bool withMember(std::string_view key, Use&& use) const {
    const JsonNode* found = find(key);
    if (found == nullptr || found->kind == JsonNode::Kind::null) return false;
    use(JsonValue(*found, *this));
    return true;
  }
  ///@{
  /// Calls `use(key, value)` for every member, or `use(value)` for every element, in order.
  template <class Use>
  void forEachMember(Use&& use) const {
    expectObject();
    for (const JsonNode* child = begin(); child != end(); child += child->extent) {
      use(child->key, JsonValue(*child, *this));
    }
  }
  template <class Use>
  void forEachElement(Use&& use) const {
    expectList();
    std::size_t index = 0;
    for (const JsonNode* child = begin(); child != end(); child += child->extent) {
      use(JsonValue(*child, *this, index++));
    }
  }
  ///@}

  ///@{
  /// Throws DecodingError for a value of another kind.
  void expectObject() const;
  void expectList() const;
  ///@}
  /// Throws DecodingError with the way to this value.
  [[noreturn]] void fail(std::string problem) const;
  /// Fails naming `key` inside this object, which is missing or null.
  [[noreturn]] void failMissing(std::string_view key) const;

 private:
  JsonValue(const JsonNode& node, const JsonValue& parent, std::size_t index = 0)
      : node_(node), dates_(parent.dates_), parent_(&parent), index_(index) {}

  const JsonNode* begin() const { return &node_ + 1; }
  const JsonNode* end() const { return &node_ + node_.extent; }
  const JsonNode* find(std::string_view key) const;
  std::string path() const;

  const JsonNode& node_;
  DateCoding dates_;
  const JsonValue* parent_ = nullptr;
  std::size_t index_ = 0;  ///< inside a list
};

/// A parsed text that decode() reads from.
class JsonDocument {
 public:
  /// Keeps nothing of `text`. Throws DecodingError when it is no JSON.
  explicit JsonDocument(std::string_view text, DateCoding dates = DateCoding::secondsSince2001);
  JsonDocument(const JsonDocument&) = delete;
  JsonDocument& operator=(const JsonDocument&) = delete;
  /// Refers to the document.
  JsonValue root() const { return JsonValue(nodes_.front(), dates_); }

 private:
  std::vector<JsonNode> nodes_;
  DateCoding dates_;
};

// ------------------------------------------------------------------------ the form of each type

/// How a type is written and read: two static functions, of which `read` throws DecodingError.
/// There is one for bool, std::int64_t, double, std::string, Timestamp, enumerations and records
/// with a table, and lists and maps of these.
template <class T>
struct JsonForm;

///@{
/// One value through its form. A record that reads more than its table says specialises readJson().
template <class T>
void writeJson(JsonWriter& out, const T& value) {
  JsonForm<T>::write(out, value);
}
template <class T>
void readJson(const JsonValue& in, T& value) {
  JsonForm<T>::read(in, value);
}
///@}

/// @cond

template <>
struct JsonForm<bool> {
  static void write(JsonWriter& out, bool value) { out.write(value); }
  static void read(const JsonValue& in, bool& value) { value = in.boolean(); }
};
template <>
struct JsonForm<std::int64_t> {
  static void write(JsonWriter& out, std::int64_t value) { out.write(value); }
  static void read(const JsonValue& in, std::int64_t& value) { value = in.integer(); }
};
template <>
struct JsonForm<double> {
  static void write(JsonWriter& out, double value) { out.write(value); }
  static void read(const JsonValue& in, double& value) { value = in.number(); }
};
template <>
struct JsonForm<std::string> {
  static void write(JsonWriter& out, const std::string& value) {
    out.write(std::string_view(value));
  }
  static void read(const JsonValue& in, std::string& value) { value = in.text(); }
};
template <>
struct JsonForm<Timestamp> {
  static void write(JsonWriter& out, Timestamp value) { out.write(value); }
  static void read(const JsonValue& in, Timestamp& value) { value = in.timestamp(); }
};
template <TabledEnum E>
struct JsonForm<E> {
  static constexpr bool isText =
      std::is_same_v<decltype(rawValue(std::declval<E>())), std::string_view>;

  static void write(JsonWriter& out, E value) {
    if constexpr (isText) {
      out.write(rawValue(value));
    } else {
      out.write(std::int64_t{rawValue(value)});
    }
  }
  static void read(const JsonValue& in, E& value) {
    std::optional<E> found;
    if constexpr (isText) {
      found = fromRawValue<E>(in.text());
    } else {
      found = fromRawValue<E>(in.integer());
    }
    if (!found) {
      if constexpr (isText) {
        in.fail("no such case: \"" + in.text() + "\"");
      } else {
        in.fail("no such case: " + std::to_string(in.integer()));
      }
    }
    value = *found;
  }
};
template <class T>
struct JsonForm<std::vector<T>> {
  static void write(JsonWriter& out, const std::vector<T>& values) {
    out.beginList();
    for (const T& value : values) writeJson(out, value);
    out.endList();
  }
  static void read(const JsonValue& in, std::vector<T>& values) {
    values.clear();
    in.forEachElement([&](const JsonValue& element) { readJson(element, values.emplace_back()); });
  }
};
template <class T>
struct JsonForm<std::map<std::string, T>> {
  static void write(JsonWriter& out, const std::map<std::string, T>& values) {
    out.beginObject();
    for (const auto& [key, value] : values) {
      out.key(key);
      writeJson(out, value);
    }
    out.endObject();
  }
  static void read(const JsonValue& in, std::map<std::string, T>& values) {
    values.clear();
    in.forEachMember([&](const std::string& key, const JsonValue& value) {
      readJson(value, values.try_emplace(values.end(), key)->second);
    });
  }
};

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

/// @endcond

/// Reads one field of an object into `record`, as its presence says.
template <class Record, class Member>
void readField(const JsonValue& object, const JsonField<Record, Member>& field, Record& record) {
  Member& member = record.*field.member;
  const bool found = object.withMember(field.key, [&](const JsonValue& value) {
    if constexpr (isOptional<Member>) {
      readJson(value, member.emplace());
    } else {
      readJson(value, member);
    }
  });
  if (!found && field.presence == Presence::required) object.failMissing(field.key);
}

/// Reads the fields of an object over the values `record` has: the required ones first, then the
/// others, each in table order; the first that fails ends it.
template <JsonRecord Record>
void readFields(const JsonValue& object, Record& record) {
  object.expectObject();
  std::apply(
      [&](const auto&... field) {
        ((field.presence == Presence::required ? readField(object, field, record) : void()), ...);
        ((field.presence != Presence::required ? readField(object, field, record) : void()), ...);
      },
      jsonFields<Record>);
}

/// @cond
template <JsonRecord Record>
struct JsonForm<Record> {
  static void write(JsonWriter& out, const Record& record) {
    out.beginObject();
    const auto writeField = [&](const auto& field) {
      const auto& member = record.*field.member;
      if constexpr (isOptional<std::remove_cvref_t<decltype(member)>>) {
        if (!member) return;
        out.key(field.key);
        writeJson(out, *member);
      } else {
        out.key(field.key);
        writeJson(out, member);
      }
    };
    std::apply([&](const auto&... field) { (writeField(field), ...); }, jsonFields<Record>);
    out.endObject();
  }
  static void read(const JsonValue& in, Record& record) {
    record = Record{};
    readFields(in, record);
  }
};
/// @endcond

// ---------------------------------------------------------------------------------- entry points

/// The JSON text of a value. Throws std::domain_error when it holds a number or an instant that is
/// not finite, or that lies outside the years 0000 to 9999 and is to be written in ISO 8601.
template <class T>
std::string encode(const T& value, DateCoding dates = DateCoding::secondsSince2001) {
  std::string text;
  JsonWriter out(text, dates);
  writeJson(out, value);
  return text;
}

/// The value that a JSON text describes. Throws DecodingError; no part of a value is ever returned.
template <class T>
T decode(std::string_view text, DateCoding dates = DateCoding::secondsSince2001) {
  const JsonDocument document(text, dates);
  T value{};
  readJson(document.root(), value);
  return value;
}

}  // namespace wakelatch
#pragma GCC visibility pop
