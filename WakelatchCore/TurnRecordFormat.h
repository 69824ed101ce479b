// Describes how agents write down their turns: in which files, and which values mean what.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/Enum.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// What an agent's record says of a session.
enum class TurnState {
  working,      ///< in a turn, until it is the user's turn to speak
  waiting,      ///< in a turn that goes on when the user has answered: a permission, a question
  idle,         ///< no turn is under way
  asksForTool,  ///< it wants a process to run: it works once there is one, and until then waits
  unclear,      ///< the record leaves open which of these it is
};
template <>
inline constexpr auto enumCases<TurnState> = std::to_array<EnumCase<TurnState>>({
    {TurnState::working, "working"},
    {TurnState::waiting, "waiting"},
    {TurnState::idle, "idle"},
    {TurnState::asksForTool, "asksForTool"},
    {TurnState::unclear, "unclear"},
});

/// Files in which an agent writes down its turns. Where two formats tell of a session of the same
/// name, the first one counts, except that a session at work waits if the other says so.
struct TurnRecordFormat {
  /// How such a file is made up.
  enum class Form {
    object,   ///< one JSON object, written anew with each change
    members,  ///< the same, with a session in each member, under its name
    lines,    ///< JSON objects, one a line, appended
    sqlite,   ///< a database of SQLite
  };
  /// What a line, an object or a member means when it bears certain values.
  struct Rule {
    TurnState state = TurnState::idle;  ///< that it means
    /// By field, the values of which one must be there; "*" is any. A field is the way to a JSON
    /// value with dots between the keys; of a list on the way any element will do.
    std::map<std::string, std::vector<std::string>> when = {};

    friend bool operator==(const Rule&, const Rule&) = default;
  };

  std::vector<std::string> globs = {};  ///< below home, as for FileActivityProbe
  Form form = Form::object;             ///< how each file is made up
  /// The first rule that fits counts, and of a file of lines the last line that one fits.
  std::vector<Rule> rules = {};
  /// The session is named as the directory that the file is in, not as the file.
  bool isNamedByDirectory = false;
  /// The field that holds the id of the process, where there is one.
  std::optional<std::string> processIDField = {};
  /// The field that tells when this was written, in ISO 8601; otherwise the file's time does.
  std::optional<std::string> timeField = {};
  /// Of a database: gives a row for each session, of its name, the state and the milliseconds since
  /// 1970 at which that was written. Rows older than `:since`, in the same unit, may be left out.
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
