#include "Host/AgentsFile.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Host/AgentProfileJson.h"
#include "Host/SupportDirectory.h"
#include "Host/SystemTools.h"
#include "Host/UserFile.h"

namespace wakelatch::host {
namespace {

template <class T>
inline constexpr bool isListOfRecords = false;
template <json::Record Record>
inline constexpr bool isListOfRecords<std::vector<Record>> = true;

/// Fails at a key that the record's table, or that of a record inside it, does not have: a mistyped
/// one would go unnoticed.
template <json::Record Record>
void expectNoOtherFields(const json::Value& object) {
  for (const auto& member : object.members()) {
    const json::Value& value = member.second;
    bool isKnown = false;
    const auto compare = [&]<class Member>(const json::Field<Record, Member>& field) {
      if (field.key != member.first) return;
      isKnown = true;
      if constexpr (isListOfRecords<Member>) {
        if (value.isNull()) return;
        for (const json::Value& element : value.elements()) {
          expectNoOtherFields<typename Member::value_type>(element);
        }
      }
    };
    std::apply([&](const auto&... field) { (compare(field), ...); }, json::fields<Record>);
    if (!isKnown) value.fail("no such field");
  }
}

/// The member's text, nothing when there is none. Fails when it is empty.
std::optional<std::string> nonEmptyText(const json::Value& object, std::string_view key) {
  const auto value = object.member(key);
  if (!value) return std::nullopt;
  if (value->string().empty()) value->fail("must not be empty");
  return value->string();
}

/// Fails at a glob that every file of the user's might match: it would be walked for in each tick.
void expectBounded(const json::Value& object, std::string_view key) {
  const auto globs = object.member(key);
  if (!globs) return;
  for (const json::Value& glob : globs->elements()) {
    const std::string& text = glob.string();
    const std::size_t start = text.find_first_not_of("~/");
    const std::string first =
        start == text.npos ? "" : text.substr(start, text.find('/', start) - start);
    if (first.empty() || first.find('*') != first.npos) {
      glob.fail("must begin with the name of a directory or file below the home directory");
    }
  }
}

/// Lays files over the built-in agents, one after the other. Throws DecodingError.
class Overlay {
 public:
  void add(const std::filesystem::path& file, const std::string& text) {
    const json::Value root(text);
    for (const auto& [key, value] : root.members()) {
      if (key != "agents" && key != "$schema") value.fail("no such field");
    }
    const auto entries = root.member("agents");
    if (!entries) root.failMissing("agents");
    std::set<std::string> ids;
    for (const json::Value& entry : entries->elements()) {
      const std::string id = addEntry(file, entry);
      if (!ids.insert(id).second) entry.fail("there are two entries for \"" + id + "\"");
    }
    // Not before all are there: two agents may swap their names.
    for (const json::Value& entry : entries->elements()) expectOwnName(entry);
  }

  Agents result() && { return {AgentProfiles(std::move(profiles_)), std::move(sources_)}; }

 private:
  std::string addEntry(const std::filesystem::path& file, const json::Value& entry) {
    expectNoOtherFields<AgentProfile>(entry);
    const auto id = nonEmptyText(entry, "id");
    if (!id) entry.failMissing("id");
    const bool hasName = nonEmptyText(entry, "displayName").has_value();
    auto profile = std::find_if(profiles_.begin(), profiles_.end(),
                                [&](const AgentProfile& known) { return known.id == *id; });
    const bool isNew = profile == profiles_.end();
    if (isNew) {
      if (!hasName) entry.failMissing("displayName");
      AgentProfile::Kind kind = AgentProfile().kind;
      if (const auto value = entry.member("kind")) read(*value, kind);
      profile = profiles_.insert(profile, AgentCatalog::ofKind(kind));
    }
    for (const char* globs : {"sessionActivityGlobs", "sessionCountGlobs"}) {
      expectBounded(entry, globs);
    }
    if (const auto formats = entry.member("turnRecords")) {
      for (const json::Value& format : formats->elements()) expectBounded(format, "globs");
    }
    readFields(entry, *profile);
    expectOwnRecords(entry, *profile);
    for (const auto& [key, value] : entry.members()) {
      if (!value.isNull() && (isNew || key != "id")) sources_[*id][key] = file.string();
    }
    return *id;
  }

  /// Two agents must not read the same turn records.
  void expectOwnRecords(const json::Value& entry, const AgentProfile& profile) const {
    std::map<std::vector<std::string>, std::string> readers;
    for (const AgentProfile& each : profiles_) {
      for (const TurnRecordFormat& format : each.turnRecords) {
        const auto inserted = readers.emplace(format.globs, each.id);
        const std::string& reader = inserted.first->second;
        if (inserted.second || (reader != profile.id && each.id != profile.id)) continue;
        if (const auto formats = entry.member("turnRecords")) {
          formats->fail("the same files are read for \"" + reader + "\" already");
        }
      }
    }
  }

  /// Two agents must not have the same display name: signals and statistics are kept by it.
  void expectOwnName(const json::Value& entry) const {
    const auto name = entry.member("displayName");
    if (!name) return;
    for (const AgentProfile& other : profiles_) {
      if (other.displayName == name->string() && other.id != nonEmptyText(entry, "id")) {
        name->fail("\"" + other.id + "\" has this name too");
      }
    }
  }

  std::vector<AgentProfile> profiles_ = AgentCatalog::builtin();
  decltype(Agents::sources) sources_;
};

using Texts = std::vector<std::optional<std::string>>;

/// @throws std::runtime_error  when one is there and cannot be read
Texts readAll(const std::vector<std::filesystem::path>& files) try {
  Texts texts;
  for (const std::filesystem::path& file : files) texts.push_back(readIfThere(file));
  return texts;
} catch (const std::system_error& error) {
  throw std::runtime_error(std::string("agents: ") + error.what());
}

Agents agentsOf(const std::vector<std::filesystem::path>& files, const Texts& texts) {
  Overlay overlay;
  for (std::size_t i = 0; i < files.size(); ++i) {
    try {
      if (texts[i]) overlay.add(files[i], *texts[i]);
    } catch (const DecodingError& error) {
      throw std::runtime_error("agents: " + files[i].string() + ": " + error.what() +
                               " (correct it, or move the file away)");
    }
  }
  return std::move(overlay).result();
}

}  // namespace

std::filesystem::path installedAgentsFile() {
  return (programFile().parent_path() / WAKELATCH_DATA_FROM_BIN / "agents.json").lexically_normal();
}

Agents loadAgents(const std::vector<std::filesystem::path>& files) {
  return agentsOf(files, readAll(files));
}

std::vector<std::filesystem::path> agentsFiles() {
  return {installedAgentsFile(), supportDirectory() / "agents.json"};
}

LiveAgents::LiveAgents(std::vector<std::filesystem::path> files)
    : files_(std::move(files)), texts_(readAll(files_)), agents_(agentsOf(files_, texts_)) {}

std::string LiveAgents::refresh() {
  try {
    Texts texts = readAll(files_);
    if (texts == texts_) return {};
    Agents agents = agentsOf(files_, texts);
    texts_ = std::move(texts);
    if (agents.profiles.all() != agents_.profiles.all()) ++version_;
    agents_ = std::move(agents);
    return {};
  } catch (const std::runtime_error& error) {
    return std::string(error.what()) + "; until then the agents in force stay";
  }
}

}  // namespace wakelatch::host
