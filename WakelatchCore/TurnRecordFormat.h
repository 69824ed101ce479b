// Describes how agents record their turns: in which files, and which values mean what.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/Enum.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// The state of a session in an agent's record.
enum class TurnState {
  working,      ///< in a turn
  waiting,      ///< in a turn that continues when the user has answered a question or request
  idle,         ///< not in a turn
  asksForTool,  ///< it wants to run a tool: working once that runs as a process, waiting until then
  unclear,      ///< the record does not say which of these it is
};
template <>
inline constexpr auto enumCases<TurnState> = std::to_array<EnumCase<TurnState>>({
    {TurnState::working, "working"},
    {TurnState::waiting, "waiting"},
    {TurnState::idle, "idle"},
    {TurnState::asksForTool, "asksForTool"},
    {TurnState::unclear, "unclear"},
});

/// Files in which an agent records its turns. If several formats give records of the same session,
/// mergeSessions() merges them in the order of the formats.
struct TurnRecordFormat {
  /// How such a file is structured.
  enum class Form {
    object,   ///< one JSON object, rewritten with each change, for one session
    members,  ///< one JSON object, rewritten with each change, with a member for each session
    lines,    ///< one JSON object per line, appended, for one session
    sqlite,   ///< an SQLite database
  };
  /// Gives a state to lines, objects or members that have certain values.
  struct Rule {
    TurnState state = TurnState::idle;  ///< the state that the rule gives
    /// For each field the accepted values, of which it must have one; "*" accepts any value. A
    /// field is a path of keys with dots between them; an array on the path stands for all its
    /// elements. The rule fits if all its fields do.
    std::map<std::string, std::vector<std::string>> when = {};

    friend bool operator==(const Rule&, const Rule&) = default;
  };

  std::vector<std::string> globs = {};  ///< of the files, below home, as for FileActivityProbe
  Form form = Form::object;             ///< how each file is structured
  /// The first rule that fits gives the state. In a file of lines the last line that a rule fits
  /// counts.
  std::vector<Rule> rules = {};
  /// Whether a session is named after the file's directory instead of the file's path.
  bool isNamedByDirectory = false;
  /// The field with the id of the session's process, if there is one.
  std::optional<std::string> processIDField = {};
  /// The field with the time at which the record was written, in ISO 8601; absent: the file's time
  /// counts.
  std::optional<std::string> timeField = {};
  /// The query for a database: a row for each session, with its name, its state and when that was
  /// written, in milliseconds since 1970. Rows before `:since`, in that unit too, may be left out.
  std::optional<std::string> query = {};

  friend bool operator==(const TurnRecordFormat&, const TurnRecordFormat&) = default;
};
template <>
inline constexpr auto enumCases<TurnRecordFormat::Form> =
    std::to_array<EnumCase<TurnRecordFormat::Form>>({
        {TurnRecordFormat::Form::object, "object"},
        {TurnRecordFormat::Form::members, "members"},
        {TurnRecordFormat::Form::lines, "lines"},
        {TurnRecordFormat::Form::sqlite, "sqlite"},
    });

}  // namespace wakelatch
#pragma GCC visibility pop
