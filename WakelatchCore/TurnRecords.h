// Reads the files in which agents record their turns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/TurnRecordFormat.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// The state of one session as the agent recorded it.
struct TurnRecord {
  std::string session;                   ///< a name that does not change while the session lasts
  TurnState state = TurnState::idle;     ///< the recorded state
  Timestamp writtenAt = {};              ///< when the record last changed, even without a new state
  std::optional<std::int32_t> pid = {};  ///< of the session's process, if the record names it

  friend bool operator==(const TurnRecord&, const TurnRecord&) = default;
};

/// Merges records of the same session into the first one, which takes the latest time. Its state
/// changes only from working to waiting, if another record says waiting.
void mergeSessions(std::vector<TurnRecord>& records);

/// Reads turn records, and what the system knows about the agents' processes. Implementations throw
/// only when memory is short, log nothing and may block on the file system. Calls must not overlap.
class TurnReading {
 public:
  virtual ~TurnReading() = default;

  /// The sessions whose records changed at `since` or later, in no particular order. Files that
  /// cannot be read, or that no rule fits, are skipped.
  virtual std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) = 0;
  /// When a process started, by the present setting of the clock; absent unless it is the user's.
  virtual std::optional<Timestamp> processStart(std::int32_t pid) = 0;
  /// Whether a process has a network connection.
  virtual bool isConnected(std::int32_t pid) = 0;
};

/// Reads the ends of the files that have changed. The state from a file of lines stays in force
/// until a later line gives another one, even when its line has moved out of the part that is read.
class TurnReader : public TurnReading {
 public:
  /// How much is read from the end of a file, in bytes. A longer JSON object gives no record.
  static constexpr std::size_t maxTail = 65536;
  /// The most files read per format; if there are more, the ones that changed last.
  static constexpr std::size_t maxFiles = 64;

  /// @param files  finds the files; used, not owned
  explicit TurnReader(const FileActivityProbing& files) : files_(files) {}

  std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override;
  std::optional<Timestamp> processStart(std::int32_t pid) override;
  bool isConnected(std::int32_t pid) override;

  /// The records in the end of a file. Where the file stands for the session, TurnRecord::session
  /// is empty; where its time is the record's, TurnRecord::writtenAt is not set. Absent if the text
  /// should be one JSON value and is not.
  /// @param isWhole  whether `tail` is the whole file; otherwise its first line may be incomplete
  static std::optional<std::vector<TurnRecord>> parse(const TurnRecordFormat& format,
                                                      std::string_view tail, bool isWhole);

 private:
  struct File {
    Timestamp changedAt;
    std::uint64_t size = 0;
    bool isSettled = false;  ///< changed so long ago that another change would show in the time
    std::vector<TurnRecord> told;
  };
  void refresh(const TurnRecordFormat& format, const std::string& path, File& file);

  std::map<std::string, File>& filesOf(const TurnRecordFormat& format);

  const FileActivityProbing& files_;
  /// For each format the files that its last records() read, by path.
  std::vector<std::pair<TurnRecordFormat, std::map<std::string, File>>> known_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
