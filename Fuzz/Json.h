// Properties of JSON texts that hold for every record.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Fuzz/Fuzz.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::fuzz {

/// Requires that a written record reads back as an equal one with the same text, except for rounded
/// instants.
template <class Record>
void requireStable(const Record& record, DateCoding coding) {
  std::string text;
  try {
    text = encode(record, coding);
  } catch (const std::domain_error&) {
    return require(coding == DateCoding::iso8601, "numbers have a form for every date");
  }
  const auto again = decode<Record>(text, coding);
  if (coding == DateCoding::secondsSince2001) return;
  require(again == record || coding == DateCoding::iso8601, "what is written reads alike");
  require(encode(again, coding) == text, "what was read is written alike");
}

/// Whether a written text has the values of the text that was read. Members that only the written
/// text has are defaults; members that only the other one has are unknown keys.
inline bool agrees(const nlohmann::json& written, const nlohmann::json& read) {
  if (written.is_number() && read.is_number()) {  // beyond 2^53 it may have been read as a double
    return written == read || written.get<double>() == read.get<double>();
  }
  if (!written.is_object()) return written == read;
  for (const auto& [key, value] : written.items()) {
    const auto member = read.find(key);
    if (member != read.end() && !member->is_null() && !agrees(value, *member)) return false;
  }
  return true;
}

/// Decodes the text into `held` and checks the result, or the error; returns whether it succeeded.
template <class Record>
bool requireJsonHolds(std::string_view text, DateCoding coding, Record& held) {
  const auto tree = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  try {
    held = decode<Record>(text, coding);
  } catch (const DecodingError& error) {
    const std::string where = error.path().empty() ? "" : error.path() + ": ";
    require(error.what() == where + error.problem(), "an error says where and what");
    return false;
  }
  require(!tree.is_discarded() && tree.is_object(), "only objects are records");
  for (const auto other :
       {DateCoding::secondsSince2001, DateCoding::secondsSince1970, DateCoding::iso8601})
    requireStable(held, other);
  return true;
}

}  // namespace wakelatch::fuzz
