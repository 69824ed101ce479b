#include "WakelatchCore/TurnRecords.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>
#include <utility>

#include "Platform/Files.h"
#include "Platform/Numbers.h"
#include "Platform/ProcessFacts.h"
#include "Platform/Sqlite.h"
#include "WakelatchCore/Json.h"

namespace wakelatch {
namespace {

using Rule = TurnRecordFormat::Rule;

/// More files than this are forgotten, and read again when they are asked for.
constexpr std::size_t maxKnown = 4096;

/// A record that changes twice within one step of a file system's clock bears the same time.
constexpr double longestClockStep = 2;  // seconds, FAT's

bool isWanted(std::string_view value, const std::vector<std::string>& wanted) {
  return std::any_of(wanted.begin(), wanted.end(),
                     [&](const std::string& each) { return each == "*" || each == value; });
}

/// Calls `use(text)` for the values that the field leads to; "{}" for what is no text, integer or
/// truth.
template <class Use>
void forEachValue(const JsonValue& value, std::string_view field, const Use& use) {
  using Kind = JsonNode::Kind;
  if (value.kind() == Kind::list) {
    value.forEachElement([&](const JsonValue& element) { forEachValue(element, field, use); });
  } else if (!field.empty()) {
    if (value.kind() != Kind::object) return;
    const std::string_view key = field.substr(0, field.find('.'));
    const std::string_view rest = field.substr(std::min(key.size() + 1, field.size()));
    value.withMember(key, [&](const JsonValue& member) { forEachValue(member, rest, use); });
  } else if (value.kind() == Kind::text) {
    use(value.text());
  } else if (value.kind() == Kind::integer) {
    use(std::to_string(value.integer()));
  } else if (value.kind() == Kind::boolean) {
    use(value.boolean() ? "true" : "false");
  } else {
    use("{}");
  }
}

const Rule* ruleFor(const JsonValue& line, const std::vector<Rule>& rules) {
  const auto found = std::find_if(rules.begin(), rules.end(), [&](const Rule& rule) {
    return std::all_of(rule.when.begin(), rule.when.end(), [&](const auto& condition) {
      bool holds = false;
      forEachValue(line, condition.first, [&](std::string_view value) {
        holds = holds || isWanted(value, condition.second);
      });
      return holds;
    });
  });
  return found == rules.end() ? nullptr : &*found;
}

/// Whether a rule could fit: all lines are looked at, few are worth being taken apart.
bool mayTell(std::string_view line, const std::vector<Rule>& rules) {
  const auto holds = [line](const auto& condition) {
    return std::any_of(condition.second.begin(), condition.second.end(), [&](const auto& value) {
      return value == "*" || line.find(value) != line.npos;
    });
  };
  return std::any_of(rules.begin(), rules.end(), [&](const Rule& rule) {
    return std::all_of(rule.when.begin(), rule.when.end(), holds);
  });
}

/// What a line, an object or a member tells of a session.
std::optional<TurnRecord> told(const TurnRecordFormat& format, const JsonValue& value,
                               const std::string& session) {
  const Rule* rule = ruleFor(value, format.rules);
  if (rule == nullptr) return std::nullopt;
  TurnRecord record{session, rule->state};
  if (format.processIDField) {
    forEachValue(value, *format.processIDField,
                 [&](std::string_view text) { record.pid = platform::parseInt32(text); });
  }
  if (format.timeField) {
    forEachValue(value, *format.timeField, [&](std::string_view text) {
      if (const auto time = platform::parseIso8601Fraction(text)) record.writtenAt = *time;
    });
  }
  return record;
}

/// Adds what a text tells; nothing when it is torn, or none of the agent's.
void tell(const TurnRecordFormat& format, std::string_view text, std::vector<TurnRecord>& records) {
  if (!mayTell(text, format.rules)) return;
  const auto add = [&](const JsonValue& value, const std::string& session) {
    if (auto record = told(format, value, session)) records.push_back(std::move(*record));
  };
  try {
    const JsonDocument document(text);
    if (format.form != TurnRecordFormat::Form::members) return add(document.root(), "");
    document.root().forEachMember(
        [&](const std::string& name, const JsonValue& member) { add(member, name); });
  } catch (const DecodingError&) {
    return;
  }
}

std::vector<TurnRecord> rowsOf(const std::string& database, const std::string& query,
                               Timestamp since) {
  std::vector<TurnRecord> records;
  for (const auto& row : platform::queryDatabase(
           database, query, {{":since", platform::millisecondsSince1970(since)}})) {
    const auto state = row.size() < 3 ? std::nullopt : fromRawValue<TurnState>(row[1]);
    if (!state) continue;
    std::int64_t ms = 0;
    const auto parsed = std::from_chars(row[2].data(), row[2].data() + row[2].size(), ms);
    if (parsed.ec != std::errc()) continue;
    records.push_back({row[0], *state, platform::fromMilliseconds(ms)});
  }
  return records;
}

/// The last component of the path of a file's folder.
std::string folderName(const std::string& path) {
  return std::filesystem::path(path).parent_path().filename().string();
}

}  // namespace

std::vector<TurnRecord> TurnReader::parse(const TurnRecordFormat& format, std::string_view tail,
                                          bool isWhole) {
  std::vector<TurnRecord> records;
  if (format.form != TurnRecordFormat::Form::lines) {
    if (isWhole) tell(format, tail, records);
    return records;
  }
  while (records.empty() && !tail.empty()) {
    const std::size_t end = tail.rfind('\n');
    if (end == tail.npos && !isWhole) break;      // what is left lacks its beginning
    tell(format, tail.substr(end + 1), records);  // npos + 1 is 0
    tail = tail.substr(0, end == tail.npos ? 0 : end);
  }
  return records;
}

std::vector<TurnRecord> TurnReader::records(const TurnRecordFormat& format, Timestamp since) {
  std::vector<std::pair<Timestamp, std::string>> recent;
  const bool isDatabase = format.form == TurnRecordFormat::Form::sqlite;
  for (auto& [path, time] : files_.sessionModifications(format.globs)) {
    // What a database has been told lately need not stand in its main file yet.
    if (time >= since || isDatabase) recent.emplace_back(time, path);
  }
  const std::size_t count = std::min(recent.size(), maxFiles);
  std::partial_sort(recent.begin(), recent.begin() + static_cast<std::ptrdiff_t>(count),
                    recent.end(), std::greater<>());
  recent.resize(count);
  if (known_.size() > maxKnown) known_.clear();

  std::vector<TurnRecord> records;
  for (const auto& [time, path] : recent) {
    if (isDatabase) {
      for (TurnRecord& row : rowsOf(path, format.query.value_or(""), since)) {
        if (row.writtenAt >= since) records.push_back(std::move(row));
      }
      continue;
    }
    File& file = known_[path];
    refresh(format, path, file);
    for (TurnRecord record : file.told) {
      if (record.session.empty()) {
        record.session = format.isNamedByFolder ? folderName(path) : path;
      }
      if (record.writtenAt == Timestamp()) record.writtenAt = file.changedAt;
      if (record.writtenAt < since) continue;
      records.push_back(std::move(record));
    }
  }
  return records;
}

void TurnReader::refresh(const TurnRecordFormat& format, const std::string& path, File& file) {
  const auto stamp = platform::stampOf(path);
  if (stamp && stamp->changedAt == file.changedAt && stamp->size == file.size && file.isSettled) {
    return;
  }
  const auto tail = stamp ? platform::readTail(path, maxTail) : std::nullopt;
  if (!tail) {
    file = {};
    return;
  }
  auto told = parse(format, *tail, tail->size() == stamp->size);
  const bool isAppended = format.form == TurnRecordFormat::Form::lines && stamp->size >= file.size;
  if (!told.empty() || !isAppended) file.told = std::move(told);
  file.changedAt = stamp->changedAt;
  file.size = stamp->size;
  file.isSettled = secondsBetween(stamp->changedAt, platform::now()) > longestClockStep;
}

std::optional<Timestamp> TurnReader::processStart(std::int32_t pid) {
  return platform::processStart(pid);
}

bool TurnReader::isConnected(std::int32_t pid) {
  return platform::isConnected(pid);
}

}  // namespace wakelatch
