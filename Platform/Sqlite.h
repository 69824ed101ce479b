// Reads other programs' SQLite databases without getting in their way.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace wakelatch::platform {

/// The rows that a query gives, values as texts. Reads only a database of the user or root that is
/// in use, so that its write-ahead log exists. Gives no rows when the database cannot be read or is
/// locked, or when the query is wrong or would take long; throws and logs nothing. Reads the disk;
/// any thread.
/// @param parameters  by name, with the colon
std::vector<std::vector<std::string>> queryDatabase(
    const std::string& file, const std::string& query,
    const std::map<std::string, std::int64_t>& parameters);

}  // namespace wakelatch::platform
