#include "WakelatchCore/Json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

namespace wakelatch {
namespace {

/// 2001-01-01T00:00:00Z in seconds since 1970.
constexpr std::int64_t reference2001 = 978307200;

/// Whether an instant (seconds since 1970) and its distance from 2001 are both doubles, so that
/// subtracting and adding lose nothing. Before mid-1985 the distance needs more bits than the
/// instant has; such instants go through decimal digits.
constexpr bool hasExactDistance(double secondsSince1970) {
  constexpr double half = 0.5 * static_cast<double>(reference2001);
  constexpr double largestWhole = 9007199254740992;  // 2^53
  return secondsSince1970 >= half && secondsSince1970 <= largestWhole;
}

/// `decimal` ("-12.5", without exponent) plus a whole number, digit by digit.
std::string plus(std::string_view decimal, std::int64_t whole) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  bool negative = !decimal.empty() && decimal.front() == '-';
  if (negative) decimal.remove_prefix(1);
  const auto point = std::find_if_not(decimal.begin(), decimal.end(), isDigit);
  std::string sum(decimal.begin(), point);
  if (point != decimal.end()) sum.append(point + 1, decimal.end());
  const std::size_t decimals = sum.size() - static_cast<std::size_t>(point - decimal.begin());

  std::string other = std::to_string(std::abs(whole)) + std::string(decimals, '0');
  const std::size_t width = std::max(sum.size(), other.size()) + 1;
  sum.insert(0, width - sum.size(), '0');
  other.insert(0, width - other.size(), '0');
  const int direction = negative == (whole < 0) ? 1 : -1;
  if (direction < 0 && sum < other) {
    std::swap(sum, other);
    negative = !negative;
  }
  int carry = 0;
  for (std::size_t i = width; i-- > 0;) {
    const int digit = (sum[i] - '0') + direction * (other[i] - '0') + carry;
    carry = digit > 9 ? 1 : digit < 0 ? -1 : 0;
    sum[i] = static_cast<char>('0' + digit - 10 * carry);
  }
  sum.erase(0, std::min(sum.find_first_not_of('0'), width - decimals - 1));
  if (decimals > 0) sum.insert(sum.size() - decimals, 1, '.');
  return negative ? '-' + sum : sum;
}

/// Appends the shortest digits that read back as the same number.
template <class Number, class... Format>
void appendDigits(std::string& out, Number value, Format... format) {
  char digits[400];  // the smallest double takes 327 without exponent
  out.append(digits, std::to_chars(digits, digits + sizeof digits, value, format...).ptr);
}

/// Whether `text` stands in JSON as it is: printable ASCII without quote and backslash.
bool isPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; });
}

std::string message(const std::string& path, const std::string& problem) {
  return path.empty() ? problem : path + ": " + problem;
}

/// Turns the parser's events into nodes.
class NodeBuilder final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit NodeBuilder(std::vector<JsonNode>& nodes) : nodes_(nodes) {}

  bool null() override {
    add(JsonNode::Kind::null);
    return true;
  }
  bool boolean(bool value) override {
    add(JsonNode::Kind::boolean).boolean = value;
    return true;
  }
  bool number_integer(number_integer_t value) override {
    addNumber(JsonNode::Kind::integer, static_cast<double>(value), [&] {
      return std::to_string(value);
    }).integer = value;
    return true;
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (value <= static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) {
      return number_integer(static_cast<number_integer_t>(value));
    }
    addNumber(JsonNode::Kind::number, static_cast<double>(value),
              [&] { return std::to_string(value); });
    return true;
  }
  bool number_float(number_float_t value, const string_t& digits) override {
    addNumber(JsonNode::Kind::number, value, [&] { return digits; });
    return true;
  }
  bool string(string_t& value) override {
    add(JsonNode::Kind::text).text = std::move(value);
    return true;
  }
  bool binary(binary_t&) override { return false; }  // no part of JSON texts
  bool start_object(std::size_t) override { return open(JsonNode::Kind::object); }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(JsonNode::Kind::list); }
  bool end_array() override { return close(); }
  bool key(string_t& value) override {
    key_ = std::move(value);
    return true;
  }
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::json::exception& error) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: ..." without its tag and
    // not much of the text that it quotes.
    const std::string_view what = error.what();
    const std::size_t tagEnd = what.find("] ");
    const std::string_view reason = tagEnd == what.npos ? what : what.substr(tagEnd + 2);
    throw DecodingError("", "not JSON: " + std::string(reason.substr(0, 200)));
  }

 private:
  JsonNode& add(JsonNode::Kind kind) {
    JsonNode& node = nodes_.emplace_back();
    node.kind = kind;
    node.key = std::move(key_);
    key_.clear();
    return node;
  }
  template <class Digits>
  JsonNode& addNumber(JsonNode::Kind kind, double value, Digits digits) {
    JsonNode& node = add(kind);
    node.number = value;
    if (!hasExactDistance(value + reference2001)) node.text = digits();
    return node;
  }
  bool open(JsonNode::Kind kind) {
    open_.push_back(nodes_.size());
    add(kind);
    return true;
  }
  bool close() {
    nodes_[open_.back()].extent = nodes_.size() - open_.back();
    open_.pop_back();
    return true;
  }

  std::vector<JsonNode>& nodes_;
  std::vector<std::size_t> open_;  ///< the objects and lists around the next value
  std::string key_;
};

}  // namespace

DecodingError::DecodingError(std::string path, std::string problem)
    : std::runtime_error(message(path, problem)),
      path_(std::move(path)),
      problem_(std::move(problem)) {}

// --------------------------------------------------------------------------------------- writing

void JsonWriter::separate() {
  if (needsComma_) out_ += ',';
  needsComma_ = true;
}

void JsonWriter::open(char bracket) {
  separate();
  out_ += bracket;
  needsComma_ = false;
}

void JsonWriter::close(char bracket) {
  out_ += bracket;
  needsComma_ = true;
}

void JsonWriter::key(std::string_view key) {
  write(key);
  out_ += ':';
  needsComma_ = false;
}

void JsonWriter::literal(std::string_view text) {
  separate();
  out_ += text;
}

void JsonWriter::write(bool value) {
  literal(value ? "true" : "false");
}

void JsonWriter::write(std::int64_t value) {
  separate();
  appendDigits(out_, value);
}

void JsonWriter::write(double value) {
  if (!std::isfinite(value)) {
    throw std::domain_error("JSON cannot hold a number that is not finite");
  }
  separate();
  appendDigits(out_, value);
  if (value == 0 && std::signbit(value)) out_ += ".0";  // "-0" would be read as the integer 0
}

void JsonWriter::write(std::string_view value) {
  if (!isPlain(value)) {
    return literal(
        nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  }
  separate();
  out_ += '"';
  out_ += value;
  out_ += '"';
}

void JsonWriter::write(Timestamp value) {
  const double seconds = value.time_since_epoch().count();
  if (dates_ == DateCoding::iso8601) {
    const std::string text = platform::iso8601(value);
    if (!platform::parseIso8601(text)) {
      throw std::domain_error("ISO 8601 holds the years 0000 to 9999 only");
    }
    write(std::string_view(text));
  } else if (dates_ == DateCoding::secondsSince1970) {
    write(seconds);
  } else if (hasExactDistance(seconds) || !std::isfinite(seconds)) {
    write(seconds - reference2001);
  } else {
    std::string digits;
    appendDigits(digits, seconds, std::chars_format::fixed);
    literal(plus(digits, -reference2001));
  }
}

// --------------------------------------------------------------------------------------- reading

bool JsonValue::boolean() const {
  if (node_.kind != JsonNode::Kind::boolean) fail("expected true or false");
  return node_.boolean;
}

std::int64_t JsonValue::integer() const {
  if (node_.kind == JsonNode::Kind::integer) return node_.integer;
  if (node_.kind != JsonNode::Kind::number || std::trunc(node_.number) != node_.number) {
    fail("expected an integer");
  }
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (node_.number <= -limit || node_.number >= limit) {
    fail("expected an integer of at most 64 bits");
  }
  return static_cast<std::int64_t>(node_.number);
}

double JsonValue::number() const {
  if (node_.kind != JsonNode::Kind::integer && node_.kind != JsonNode::Kind::number) {
    fail("expected a number");
  }
  return node_.number;
}

const std::string& JsonValue::text() const {
  if (node_.kind != JsonNode::Kind::text) fail("expected a string");
  return node_.text;
}

Timestamp JsonValue::timestamp() const {
  const auto since1970 = [](double seconds) {
    return Timestamp(std::chrono::duration<double>(seconds));
  };
  if (dates_ == DateCoding::iso8601) {
    const std::optional<Timestamp> time = platform::parseIso8601(text());
    if (!time) fail("expected a time such as \"2025-03-01T14:05:09Z\"");
    return *time;
  }
  if (dates_ == DateCoding::secondsSince1970) return since1970(number());
  const double rounded = number() + reference2001;
  if (hasExactDistance(rounded) || node_.text.find_first_of("eE") != std::string::npos) {
    return since1970(rounded);
  }
  return since1970(JsonDocument(plus(node_.text, reference2001)).root().number());
}

const JsonNode* JsonValue::find(std::string_view key) const {
  expectObject();
  const JsonNode* found = nullptr;
  for (const JsonNode* child = begin(); child != end(); child += child->extent) {
    if (child->key == key) found = child;
  }
  return found;
}

void JsonValue::expectObject() const {
  if (node_.kind != JsonNode::Kind::object) fail("expected an object");
}

void JsonValue::expectList() const {
  if (node_.kind != JsonNode::Kind::list) fail("expected an array");
}

std::string JsonValue::path() const {
  if (parent_ == nullptr) return {};
  const std::string before = parent_->path();
  if (parent_->node_.kind == JsonNode::Kind::list) {
    return before + '[' + std::to_string(index_) + ']';
  }
  return before.empty() ? node_.key : before + '.' + node_.key;
}

void JsonValue::fail(std::string problem) const {
  throw DecodingError(path(), std::move(problem));
}

void JsonValue::failMissing(std::string_view key) const {
  if (const JsonNode* found = find(key)) JsonValue(*found, *this).fail("must not be null");
  JsonNode missing;
  missing.key = key;
  JsonValue(missing, *this).fail("missing");
}

JsonDocument::JsonDocument(std::string_view text, DateCoding dates) : dates_(dates) {
  // The parser would take it for the end and ignore what follows.
  if (text.find('\0') != text.npos) throw DecodingError("", "not JSON: it holds a NUL byte");
  NodeBuilder builder(nodes_);
  nlohmann::json::sax_parse(text, &builder);
}

}  // namespace wakelatch
