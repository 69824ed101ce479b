#include "WakelatchCore/Json.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace wakelatch {

DecodingError::DecodingError(std::string path, std::string problem)
    : std::runtime_error(path.empty() ? problem : path + ": " + problem),
      path_(std::move(path)),
      problem_(std::move(problem)) {}

namespace json {
namespace {

using Node = nlohmann::json;

/// 2001-01-01T00:00:00Z in seconds since 1970.
constexpr double reference2001 = 978307200;

/// The shortest decimal form that reads back as the same number.
template <class Number>
std::string digitsOf(Number value) {
  char digits[32];
  return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

std::shared_ptr<const void> parse(std::string_view text) try {
  // The parser would stop at a NUL and ignore the rest.
  if (text.find('\0') != text.npos) throw DecodingError("", "not JSON: it holds a NUL byte");
  return std::make_shared<const Node>(Node::parse(text));
} catch (const nlohmann::json::exception& error) {
  // The message is "[json.exception.parse_error.101] parse error at line 1, column 2: ...". The tag
  // is removed and the rest cut, as it quotes the text.
  const std::string_view what = error.what();
  const std::size_t tagEnd = what.find("] ");
  const std::string_view reason = tagEnd == what.npos ? what : what.substr(tagEnd + 2);
  throw DecodingError("", "not JSON: " + std::string(reason.substr(0, 200)));
}

const Node& nodeOf(const std::shared_ptr<const void>& node) {
  return *static_cast<const Node*>(node.get());
}

}  // namespace

// --------------------------------------------------------------------------------------- writing

void Writer::add(std::string_view token) {
  const bool isFirst = text.empty() || std::string_view("[{:").find(text.back()) != token.npos;
  if (!isFirst) text += ',';
  text += token;
}

void write(Writer& out, std::int64_t value) {
  out.add(digitsOf(value));
}

void write(Writer& out, double value) {
  if (!std::isfinite(value)) {
    throw std::domain_error("JSON cannot hold a number that is not finite");
  }
  const bool isNegativeZero = value == 0 && std::signbit(value);
  out.add(isNegativeZero ? "-0.0" : digitsOf(value));  // "-0" would be read as the integer 0
}

void write(Writer& out, std::string_view value) {
  out.add(Node(value).dump(-1, ' ', false, Node::error_handler_t::replace));
}

void write(Writer& out, Timestamp value) {
  const double seconds = value.time_since_epoch().count();
  if (out.dates == DateCoding::secondsSince1970) return write(out, seconds);
  if (out.dates == DateCoding::secondsSince2001) return write(out, seconds - reference2001);
  const std::string text = platform::iso8601(value);
  if (!platform::parseIso8601(text)) {
    throw std::domain_error("ISO 8601 holds the years 0000 to 9999 only");
  }
  write(out, text);
}

// --------------------------------------------------------------------------------------- reading

Value::Value(std::string_view text, DateCoding dates) : node_(parse(text)), dates_(dates) {}

Value::Value(const Value& parent, const void* node, std::string path)
    : node_(parent.node_, node), path_(std::move(path)), dates_(parent.dates_) {}

bool Value::isNull() const {
  return nodeOf(node_).is_null();
}
bool Value::isBoolean() const {
  return nodeOf(node_).is_boolean();
}
bool Value::isInteger() const {
  const Node& node = nodeOf(node_);
  return node.is_number_integer() &&
         !(node.is_number_unsigned() && node.get<std::uint64_t>() > INT64_MAX);
}
bool Value::isString() const {
  return nodeOf(node_).is_string();
}
bool Value::isArray() const {
  return nodeOf(node_).is_array();
}
bool Value::isObject() const {
  return nodeOf(node_).is_object();
}

bool Value::boolean() const {
  if (!isBoolean()) fail("expected true or false");
  return nodeOf(node_).get<bool>();
}

std::int64_t Value::integer() const {
  const Node& node = nodeOf(node_);
  if (isInteger()) return node.get<std::int64_t>();
  const double value = node.is_number() ? node.get<double>() : std::nan("");
  if (std::trunc(value) != value) fail("expected an integer");
  if (std::abs(value) >= 0x1p63) fail("expected an integer of at most 64 bits");
  return static_cast<std::int64_t>(value);
}

double Value::number() const {
  if (!nodeOf(node_).is_number()) fail("expected a number");
  return nodeOf(node_).get<double>();
}

const std::string& Value::string() const {
  if (!isString()) fail("expected a string");
  return nodeOf(node_).get_ref<const std::string&>();
}

Timestamp Value::timestamp() const {
  if (dates_ == DateCoding::iso8601) {
    const std::optional<Timestamp> time = platform::parseIso8601(string());
    if (!time) fail("expected a time such as \"2025-03-01T14:05:09Z\"");
    return *time;
  }
  const double since1970 =
      dates_ == DateCoding::secondsSince1970 ? number() : number() + reference2001;
  return Timestamp(std::chrono::duration<double>(since1970));
}

std::vector<Value> Value::elements() const {
  if (!isArray()) fail("expected an array");
  std::vector<Value> elements;
  for (const Node& element : nodeOf(node_)) {
    const std::string index = std::to_string(elements.size());
    elements.push_back(Value(*this, &element, path_ + '[' + index + ']'));
  }
  return elements;
}

std::map<std::string, Value> Value::members() const {
  if (!isObject()) fail("expected an object");
  std::map<std::string, Value> members;
  for (const auto& [key, node] : nodeOf(node_).items()) {
    members.emplace(key, Value(*this, &node, pathOf(key)));
  }
  return members;
}

std::optional<Value> Value::member(std::string_view key) const {
  if (!isObject()) fail("expected an object");
  const auto found = nodeOf(node_).find(std::string(key));
  if (found == nodeOf(node_).end() || found->is_null()) return std::nullopt;
  return Value(*this, &*found, pathOf(key));
}

std::string Value::pathOf(std::string_view key) const {
  return (path_.empty() ? "" : path_ + '.') + std::string(key);
}

void Value::fail(std::string problem) const {
  throw DecodingError(path_, std::move(problem));
}

void Value::failMissing(std::string_view key) const {
  const bool isThere = nodeOf(node_).contains(std::string(key));
  throw DecodingError(pathOf(key), isThere ? "must not be null" : "missing");
}

}  // namespace json
}  // namespace wakelatch
