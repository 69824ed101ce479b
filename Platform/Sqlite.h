// Other programs' SQLite databases, read without being in their way.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace wakelatch::platform {

/// The rows that a query gives, values as texts. Only what is in use is read: a database of the
/// user's or root's whose write-ahead log is there. No row when it cannot be read, is locked, the
/// query is wrong or would take long; nothing is thrown or logged. Reads the disk; any thread.
/// @param parameters  by name, with the colon
std::vector<std::vector<std::string>> queryDatabase(
    const std::string& file, const std::string& query,
    const std::map<std::string, std::int64_t>& parameters);

}  // namespace wakelatch::platform
