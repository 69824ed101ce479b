#include "WakelatchCore/Json.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace wakelatch {
namespace {

/// 2001-01-01T00:00:00Z in seconds since 1970.
constexpr double reference2001 = 978307200.0;

/// Whether `text` stands in JSON as it is: printable ASCII without quote and backslash.
bool isPlain(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f || c == '"' ||
        c == '\\') {
      return false;
    }
  }
  return true;
}

std::string message(const std::string& path, const std::string& problem) {
  return path.empty() ? problem : path + ": " + problem;
}

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

void JsonWriter::write(bool value) {
  separate();
  out_ += value ? "true" : "false";
}

void JsonWriter::write(std::int64_t value) {
  separate();
  out_ += std::to_string(value);
}

void JsonWriter::write(double value) {
  if (!std::isfinite(value))
    throw std::domain_error("JSON cannot hold a number that is not finite");
  separate();
  out_ += nlohmann::json(value).dump();
}

void JsonWriter::write(std::string_view value) {
  separate();
  if (isPlain(value)) {
    out_ += '"';
    out_ += value;
    out_ += '"';
  } else {
    out_ += nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
}

void JsonWriter::write(Timestamp value) {
  const double seconds = value.time_since_epoch().count();
  switch (dates_) {
    case DateCoding::secondsSince2001:
      return write(seconds - reference2001);
    case DateCoding::secondsSince1970:
      return write(seconds);
    case DateCoding::iso8601:
      return write(std::string_view(platform::iso8601(value)));
  }
}

// --------------------------------------------------------------------------------------- reading

bool JsonValue::isNull() const {
  return node_.is_null();
}

bool JsonValue::boolean() const {
  if (!node_.is_boolean()) fail("expected true or false");
  return *node_.get_ptr<const bool*>();
}

std::int64_t JsonValue::integer() const {
  constexpr const char* problem = "expected an integer";
  if (node_.is_number_unsigned()) {
    const auto value = *node_.get_ptr<const nlohmann::json::number_unsigned_t*>();
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      fail("expected an integer of at most 64 bits");
    }
    return static_cast<std::int64_t>(value);
  }
  if (node_.is_number_integer()) return *node_.get_ptr<const nlohmann::json::number_integer_t*>();
  if (!node_.is_number_float()) fail(problem);
  const double value = *node_.get_ptr<const double*>();
  if (std::trunc(value) != value) fail(problem);
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (value < -limit || value >= limit) fail("expected an integer of at most 64 bits");
  return static_cast<std::int64_t>(value);
}

double JsonValue::number() const {
  if (!node_.is_number()) fail("expected a number");
  return node_.get<double>();
}

const std::string& JsonValue::text() const {
  if (!node_.is_string()) fail("expected a text");
  return *node_.get_ptr<const std::string*>();
}

Timestamp JsonValue::timestamp() const {
  const auto since1970 = [](double seconds) {
    return Timestamp(std::chrono::duration<double>(seconds));
  };
  switch (dates_) {
    case DateCoding::secondsSince2001:
      return since1970(number() + reference2001);
    case DateCoding::secondsSince1970:
      return since1970(number());
    case DateCoding::iso8601:
      break;
  }
  const std::optional<Timestamp> time = platform::parseIso8601(text());
  if (!time) fail("expected a time such as \"2025-03-01T14:05:09Z\"");
  return *time;
}

const nlohmann::json* JsonValue::find(std::string_view key) const {
  expectObject();
  const auto& members = *node_.get_ptr<const nlohmann::json::object_t*>();
  const auto found = members.find(key);
  return found == members.end() || found->second.is_null() ? nullptr : &found->second;
}

void JsonValue::visitMembers(void* context,
                             void (*visit)(void*, const std::string&, const JsonValue&)) const {
  for (const auto& [key, node] : *node_.get_ptr<const nlohmann::json::object_t*>()) {
    visit(context, key, JsonValue(node, *this, key));
  }
}

void JsonValue::visitElements(void* context, void (*visit)(void*, const JsonValue&)) const {
  if (!node_.is_array()) fail("expected a list");
  std::size_t index = 0;
  for (const auto& node : node_) visit(context, JsonValue(node, *this, index++));
}

void JsonValue::expectObject() const {
  if (!node_.is_object()) fail("expected an object");
}

std::string JsonValue::path() const {
  if (parent_ == nullptr) return {};
  std::string before = parent_->path();
  if (key_.data() == nullptr) return before + '[' + std::to_string(index_) + ']';
  if (!before.empty()) before += '.';
  return before.append(key_);
}

void JsonValue::fail(std::string problem) const {
  throw DecodingError(path(), std::move(problem));
}

void JsonValue::failMissing(std::string_view key) const {
  throw DecodingError(JsonValue(node_, *this, key).path(), "missing");
}

JsonDocument::JsonDocument(std::string_view text, DateCoding dates) : dates_(dates) {
  try {
    node_ = std::make_unique<const nlohmann::json>(nlohmann::json::parse(text));
  } catch (const nlohmann::json::exception& error) {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: ..." without its tag
    const std::string_view what = error.what();
    const std::size_t tagEnd = what.find("] ");
    throw DecodingError(
        "", "not JSON: " + std::string(tagEnd == what.npos ? what : what.substr(tagEnd + 2)));
  }
}

JsonDocument::~JsonDocument() = default;

JsonValue JsonDocument::root() const {
  return JsonValue(*node_, dates_);
}

}  // namespace wakelatch
