#include "WakelatchCore/TurnRecords.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "Tests/TemporaryDirectory.h"

namespace wakelatch {
namespace {

const std::vector<TurnRecordFormat::Rule> rules = {
    {TurnState::working, {{"turn.state", {"at work"}}}},
    {TurnState::idle, {{"turn.state", {"d\u00F6"}}}}};
const std::string busy = R"({"turn":{"state":"at work"}})",
                  done = R"({"turn":{"state":"d\u00f6"}})";

/// "a.jsonl working, …", of all files that tell something.
std::string told(TurnReader& reader, const TurnRecordFormat& format, Timestamp since = {}) {
  std::map<std::string, std::string> states;
  for (const TurnRecord& record : reader.records(format, since)) {
    states[record.session.substr(record.session.rfind('/') + 1)] = rawValue(record.state);
  }
  std::string text;
  for (const auto& [session, state] : states) text += session + " " + state + ", ";
  return text;
}

TEST(TurnRecords, AreReadFromTheEndsOfFiles) {
  const TemporaryDirectory directory;
  const FileActivityProbe probe(directory.path(), 4);
  TurnReader reader(probe);
  const TurnRecordFormat format{
      .globs = {"*.jsonl"}, .form = TurnRecordFormat::Form::lines, .rules = rules};
  const std::string file = directory.path() / "a.jsonl", noise(TurnReader::maxTail, 'x');
  const auto after = [&](const std::string& content) {
    writeFile(file, content);
    return told(reader, format);
  };
  EXPECT_EQ(after(busy + "\n" + done + "\n" + busy), "a.jsonl working, ");
  EXPECT_EQ(after(busy + "\n" + done + "\n" + busy.substr(0, 20)), "a.jsonl idle, ");
  EXPECT_EQ(after(busy + "\n" + done + "\n" + busy.substr(0, 20) + noise), "a.jsonl idle, ");
  EXPECT_EQ(after(noise + noise), "a.jsonl idle, ");  // what it told has moved out of sight
  EXPECT_EQ(after(""), "");                           // and begun anew
  const std::string blanks(TurnReader::maxTail - busy.size(), ' ');
  EXPECT_EQ(after("x" + busy + blanks), "");  // a line that lacks its beginning
  EXPECT_EQ(after(busy + "\n" + std::string(10000, '[') + "\n"), "a.jsonl working, ");
  EXPECT_EQ(told(reader, format, wakelatch::after(platform::now(), 60)), "");
}

TEST(TurnRecords, ThatCannotBeReadTellNothing) {
  const TemporaryDirectory directory;
  const FileActivityProbe probe(directory.path(), 4);
  TurnReader reader(probe);
  const TurnRecordFormat format{.globs = {"*.json"}, .rules = rules};
  writeFile(directory.path() / "good.json", busy);
  writeFile(directory.path() / "huge.json", busy + std::string(TurnReader::maxTail, ' '));
  writeFile(directory.path() / "torn.json", busy.substr(0, busy.size() - 1));
  writeFile(directory.path() / "other.json", "[1, null, {\"turn\": 3}]");
  std::filesystem::create_directory(directory.path() / "directory.json");
  ASSERT_EQ(::mkfifo((directory.path() / "pipe.json").c_str(), 0600), 0);
  std::filesystem::create_symlink("/nowhere", directory.path() / "link.json");
  EXPECT_EQ(told(reader, format), "good.json working, ");
  writeFile(directory.path() / "good.json", done);  // of the same size, perhaps in the same instant
  EXPECT_EQ(told(reader, format), "good.json idle, ");
  writeFile(directory.path() / "good.json", busy.substr(0, 20));  // half of it, so far
  EXPECT_EQ(told(reader, format), "good.json idle, ");
}

TEST(TurnRecords, OfSeveralSessionsAreToldApart) {
  const TemporaryDirectory directory;
  const FileActivityProbe probe(directory.path(), 4);
  TurnReader reader(probe);
  writeFile(directory.path() / "all.json",
            R"({"s1": {"turn": {"state": "at work"}, "at": "2026-11-23T16:25:08.5Z", "pid": 5},
                "s2": {"turn": [{"state": "x"}, {"state": "d\u00f6"}], "pid": 6},
                "s3": {"turn": {"state": "at work"}, "pid": 99999999999}, "s4": 1})");
  TurnRecordFormat format{.globs = {"all.json"},
                          .form = TurnRecordFormat::Form::members,
                          .rules = rules,
                          .processIDField = "pid",
                          .timeField = "at"};
  EXPECT_EQ(told(reader, format), "s1 working, s2 idle, ");
  const TurnRecord first = reader.records(format, {}).front();
  EXPECT_EQ(first.pid, 5);
  EXPECT_EQ(platform::iso8601Milliseconds(first.writtenAt), "2026-11-23T16:25:08.500Z");
  writeFile(directory.path() / "s4/events", busy);
  format = {.globs = {"*/events"},
            .form = TurnRecordFormat::Form::lines,
            .rules = rules,
            .isNamedByDirectory = true};
  EXPECT_EQ(told(reader, format), "s4 working, ");
}

TEST(TurnRecords, OfOneSessionTellTheFirstUnlessItWaits) {
  const Timestamp early, late = after(early, 9);
  for (const auto& [first, merged] : {std::pair(TurnState::working, TurnState::waiting),
                                      std::pair(TurnState::idle, TurnState::idle)}) {
    std::vector<TurnRecord> records{{"s", first, late}, {"s", TurnState::waiting, early}};
    mergeSessions(records);
    EXPECT_EQ(records, (std::vector{TurnRecord{"s", merged, late}}));
  }
}

TEST(TurnRecords, AreReadFromADatabaseThatIsInUse) {
  const TemporaryDirectory directory;
  const FileActivityProbe probe(directory.path(), 4);
  TurnReader reader(probe);
  TurnRecordFormat format{.globs = {"*.db"}, .form = TurnRecordFormat::Form::sqlite};
  format.query = "SELECT name, state, ms FROM turns WHERE ms >= :since";
  writeFile(directory.path() / "none.db", "no database");
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open((directory.path() / "a.db").c_str(), &writer), SQLITE_OK);
  const auto execute = [&](const char* sql) {
    EXPECT_EQ(sqlite3_exec(writer, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
  };
  execute(
      "PRAGMA journal_mode=WAL; CREATE TABLE turns(name, state, ms);"
      "INSERT INTO turns VALUES('s1', 'working', 2000), ('s2', 'idle', 1000), ('s3', 'odd', 9000)");
  EXPECT_EQ(told(reader, format), "s1 working, s2 idle, ");
  execute("BEGIN IMMEDIATE; UPDATE turns SET state = 'idle' WHERE name = 's1'");
  EXPECT_EQ(told(reader, format, platform::fromMilliseconds(2000)), "s1 working, ");
  execute("COMMIT");
  EXPECT_EQ(told(reader, format), "s1 idle, s2 idle, ");
  format.query = "SELECT nonsense";
  EXPECT_EQ(told(reader, format), "");
  format.query = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n) SELECT i FROM n";
  EXPECT_EQ(told(reader, format), "");
  sqlite3_close(writer);
}

TEST(TurnRecords, ProcessesTellTheirStartAndTheirConnections) {
  const FileActivityProbe probe("/", 0);
  TurnReader reader(probe);
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  const auto start = reader.processStart(child);
  EXPECT_TRUE(start && std::abs(secondsBetween(*start, platform::now())) < 5);
  EXPECT_FALSE(reader.isConnected(child));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(reader.processStart(child), std::nullopt);

  const int listener = ::socket(AF_INET, SOCK_STREAM, 0),
            client = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_TRUE(::bind(listener, generic, size) == 0 && ::listen(listener, 1) == 0 &&
              ::getsockname(listener, generic, &size) == 0);
  EXPECT_FALSE(reader.isConnected(::getpid()));
  ASSERT_EQ(::connect(client, generic, size), 0);
  EXPECT_TRUE(reader.isConnected(::getpid()));
  ::close(client);
  ::close(listener);
}

}  // namespace
}  // namespace wakelatch
