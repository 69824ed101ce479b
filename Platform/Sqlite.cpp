#include "Platform/Sqlite.h"

#include <sqlite3.h>

#include <memory>

#include "Platform/Files.h"

namespace wakelatch::platform {
namespace {

struct Closer {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

/// Some 0.2 s on a machine of today; in units of SQLite's virtual machine.
constexpr int maxSteps = 5'000'000;

constexpr std::size_t maxRows = 1000;
constexpr int maxValueBytes = 16 << 20;  // a message may hold a picture

}  // namespace

std::vector<std::vector<std::string>> queryDatabase(
    const std::string& file, const std::string& query,
    const std::map<std::string, std::int64_t>& parameters) {
  // Opening a database that has no log would create one, and this must change no file of the
  // user's.
  if (!stampOf(file) || !stampOf(file + "-wal")) return {};
  sqlite3* opened = nullptr;
  const int status =
      sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  const std::unique_ptr<sqlite3, Closer> database(opened);
  if (status != SQLITE_OK) return {};
  sqlite3_limit(opened, SQLITE_LIMIT_LENGTH, maxValueBytes);
  sqlite3_progress_handler(
      opened, maxSteps, [](void*) { return 1; }, nullptr);
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(opened, query.c_str(), -1, &prepared, nullptr) != SQLITE_OK) return {};
  const std::unique_ptr<sqlite3_stmt, Closer> statement(prepared);
  for (const auto& [name, value] : parameters) {
    const int index = sqlite3_bind_parameter_index(prepared, name.c_str());
    if (index > 0) sqlite3_bind_int64(prepared, index, value);
  }
  std::vector<std::vector<std::string>> rows;
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(prepared)) == SQLITE_ROW && rows.size() < maxRows) {
    std::vector<std::string>& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(prepared, column));
      row.emplace_back(text == nullptr ? "" : text);
    }
  }
  if (step != SQLITE_DONE) return {};  // rows that were not read might contradict those that were
  return rows;
}

}  // namespace wakelatch::platform
