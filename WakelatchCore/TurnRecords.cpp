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

/// Limit on nested arrays and objects; agents' records have a handful of levels.
constexpr int maxDepth = 16;

/// Limit on the databases queried per format, as each query may be slow.
constexpr std::size_t maxDatabases = 4;

/// A file that changes twice within one step of the file system's clock keeps the same time.
constexpr double longestClockStep = 2;  // seconds, FAT's

bool isWanted(std::string_view value, const std::vector<std::string>& wanted) {
  return std::any_of(wanted.begin(), wanted.end(),
                     [&](const std::string& each) { return each == "*" || each == value; });
}

/// Calls `use(text)` for each value that the field leads to; the text is "{}" unless the value is a
/// string, an integer or a boolean.
template <class Use>
void forEachValue(const json::Value& value, std::string_view field, const Use& use, int depth = 0) {
  if (depth > maxDepth) return;
  if (value.isArray()) {
    for (const json::Value& element : value.elements())
      forEachValue(element, field, use, depth + 1);
  } else if (!field.empty()) {
    if (!value.isObject()) return;
    const std::string_view key = field.substr(0, field.find('.'));
    const std::string_view rest = field.substr(std::min(key.size() + 1, field.size()));
    if (const auto member = value.member(key)) forEachValue(*member, rest, use, depth + 1);
  } else if (value.isString()) {
    use(value.string());
  } else if (value.isInteger()) {
    use(std::to_string(value.integer()));
  } else if (value.isBoolean()) {
    use(value.boolean() ? "true" : "false");
  } else {
    use("{}");
  }
}

const Rule* ruleFor(const json::Value& line, const std::vector<Rule>& rules) {
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

/// Whether a rule may fit, by a cheap search: most lines need not be parsed.
bool mayTell(std::string_view line, const std::vector<Rule>& rules) {
  // A value with other characters may be written with escapes, so a search could miss it.
  const auto isPlain = [](const std::string& value) {
    return value.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_.") ==
           value.npos;
  };
  const auto holds = [&](const auto& condition) {
    return std::any_of(condition.second.begin(), condition.second.end(), [&](const auto& value) {
      return !isPlain(value) || line.find(value) != line.npos;
    });
  };
  return std::any_of(rules.begin(), rules.end(), [&](const Rule& rule) {
    return std::all_of(rule.when.begin(), rule.when.end(), holds);
  });
}

/// The record from a line, an object or a member; absent if no rule fits.
std::optional<TurnRecord> told(const TurnRecordFormat& format, const json::Value& value,
                               const std::string& session) {
  const Rule* rule = ruleFor(value, format.rules);
  if (rule == nullptr) return std::nullopt;
  TurnRecord record{session, rule->state};
  if (format.processIDField) {
    forEachValue(value, *format.processIDField,
                 [&](std::string_view text) { record.pid = platform::parseInt32(text); });
    if (!record.pid) return std::nullopt;  // without it any process could be the writer
  }
  if (format.timeField) {
    forEachValue(value, *format.timeField, [&](std::string_view text) {
      if (const auto time = platform::parseIso8601Fraction(text)) record.writtenAt = *time;
    });
  }
  return record;
}

/// Adds the records in a text. False if it is not JSON, perhaps because it is just being written.
bool tell(const TurnRecordFormat& format, std::string_view text, std::vector<TurnRecord>& records) {
  const auto add = [&](const json::Value& value, const std::string& session) {
    if (auto record = told(format, value, session)) records.push_back(std::move(*record));
  };
  try {
    const json::Value root(text);
    if (format.form == TurnRecordFormat::Form::members) {
      for (const auto& [session, member] : root.members()) add(member, session);
    } else {
      add(root, "");
    }
    return true;
  } catch (const DecodingError&) {
    return false;
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

/// The last component of the path of a file's directory.
std::string directoryName(const std::string& path) {
  return std::filesystem::path(path).parent_path().filename().string();
}

}  // namespace

void mergeSessions(std::vector<TurnRecord>& records) {
  std::vector<TurnRecord> merged;
  for (TurnRecord& record : records) {
    const auto same = std::find_if(merged.begin(), merged.end(), [&](const TurnRecord& other) {
      return other.session == record.session;
    });
    if (same == merged.end()) {
      merged.push_back(std::move(record));
      continue;
    }
    const bool waits = record.state == TurnState::waiting && same->state == TurnState::working;
    if (waits) same->state = TurnState::waiting;
    same->writtenAt = std::max(same->writtenAt, record.writtenAt);
  }
  records = std::move(merged);
}

std::optional<std::vector<TurnRecord>> TurnReader::parse(const TurnRecordFormat& format,
                                                         std::string_view tail, bool isWhole) {
  std::vector<TurnRecord> records;
  if (format.form != TurnRecordFormat::Form::lines) {
    if (isWhole && !tell(format, tail, records)) return std::nullopt;
    return records;
  }
  while (records.empty() && !tail.empty()) {
    const std::size_t end = tail.rfind('\n');
    if (end == tail.npos && !isWhole) break;             // what is left lacks its beginning
    const std::string_view line = tail.substr(end + 1);  // npos + 1 is 0
    if (mayTell(line, format.rules)) tell(format, line, records);
    tail = tail.substr(0, end == tail.npos ? 0 : end);
  }
  return records;
}

std::vector<TurnRecord> TurnReader::records(const TurnRecordFormat& format, Timestamp since) {
  std::vector<std::pair<Timestamp, std::string>> recent;
  const bool isDatabase = format.form == TurnRecordFormat::Form::sqlite;
  // All databases count, as recent changes may not have reached a database's main file yet.
  for (auto& [path, time] : isDatabase ? files_.sessionModifications(format.globs)
                                       : files_.recentModifications(format.globs, since)) {
    recent.emplace_back(time, path);
  }
  const std::size_t count = std::min(recent.size(), isDatabase ? maxDatabases : maxFiles);
  std::partial_sort(recent.begin(), recent.begin() + static_cast<std::ptrdiff_t>(count),
                    recent.end(), std::greater<>());
  recent.resize(count);

  std::vector<TurnRecord> records;
  const auto add = [&](TurnRecord&& record) {
    if (record.writtenAt >= since) records.push_back(std::move(record));
  };
  std::map<std::string, File> read;
  std::map<std::string, File>& known = filesOf(format);
  for (const auto& [time, path] : recent) {
    if (isDatabase) {
      for (TurnRecord& row : rowsOf(path, format.query.value_or(""), since)) add(std::move(row));
      continue;
    }
    File& file = read[path] = std::move(known[path]);
    refresh(format, path, file);
    for (TurnRecord record : file.told) {
      if (record.session.empty()) {
        record.session = format.isNamedByDirectory ? directoryName(path) : path;
      }
      if (record.writtenAt == Timestamp()) record.writtenAt = file.changedAt;
      add(std::move(record));
    }
  }
  known = std::move(read);
  mergeSessions(records);
  return records;
}

std::map<std::string, TurnReader::File>& TurnReader::filesOf(const TurnRecordFormat& format) {
  const auto found = std::find_if(known_.begin(), known_.end(),
                                  [&](const auto& entry) { return entry.first == format; });
  return found == known_.end() ? known_.emplace_back(format, std::map<std::string, File>()).second
                               : found->second;
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
  file.isSettled = secondsBetween(stamp->changedAt, platform::now()) > longestClockStep;
  if (!told && !file.isSettled) return;  // it is being written: keep the last state for now
  const bool isAppended = format.form == TurnRecordFormat::Form::lines && stamp->size >= file.size;
  if (!told || !told->empty() || !isAppended) {
    file.told = std::move(told).value_or(std::vector<TurnRecord>());
  }
  file.changedAt = stamp->changedAt;
  file.size = stamp->size;
}

std::optional<Timestamp> TurnReader::processStart(std::int32_t pid) {
  return platform::processStart(pid);
}

bool TurnReader::isConnected(std::int32_t pid) {
  return platform::isConnected(pid);
}

}  // namespace wakelatch
