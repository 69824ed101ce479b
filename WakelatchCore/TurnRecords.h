// What agents write down about their own turns, read from their files.
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

/// One session of an agent, as the agent's own record tells it.
struct TurnRecord {
  std::string session;                   ///< the same one as long as the session lasts
  TurnState state = TurnState::idle;     ///< that it tells
  Timestamp writtenAt = {};              ///< when the record last changed, whatever it told then
  std::optional<std::int32_t> pid = {};  ///< of the process, where the record tells it

  friend bool operator==(const TurnRecord&, const TurnRecord&) = default;
};

/// Merges records of the same session into the first one, with the latest time. A session at work
/// waits if another of its records says that it waits.
void mergeSessions(std::vector<TurnRecord>& records);

/// Answers what agents have written down, and what the system knows of their processes.
/// Implementations throw nothing but for want of memory, and may block on the file system. Calls
/// must not overlap.
class TurnReading {
 public:
  virtual ~TurnReading() = default;

  /// The sessions whose records changed at `since` or later, in no particular order. What cannot be
  /// read, or does not tell, is not among them.
  virtual std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) = 0;
  /// When a process of the user began, by the clock as it is now; nothing for any other.
  virtual std::optional<Timestamp> processStart(std::int32_t pid) = 0;
  /// Whether a process has a connection to another one over a network.
  virtual bool isConnected(std::int32_t pid) = 0;
};

/// Reads the machine's files: the ends of those that have changed. What a file of lines told stands
/// until a later line tells something else, even if that has moved out of what is read.
class TurnReader : public TurnReading {
 public:
  /// What is read of a file, from its end, in bytes; an object that is longer tells nothing.
  static constexpr std::size_t maxTail = 65536;
  /// Of more files than this only those are read that changed last.
  static constexpr std::size_t maxFiles = 64;

  /// @param files  finds them; used, not owned
  explicit TurnReader(const FileActivityProbing& files) : files_(files) {}

  std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override;
  std::optional<Timestamp> processStart(std::int32_t pid) override;
  bool isConnected(std::int32_t pid) override;

  /// What a file's end tells, without the file's time; a session has no name when the file is the
  /// session's. Nothing when it should be JSON and is not.
  /// @param isWhole  the file begins with `tail`; otherwise its first line may be a part of one
  static std::optional<std::vector<TurnRecord>> parse(const TurnRecordFormat& format,
                                                      std::string_view tail, bool isWhole);

 private:
  struct File {
    Timestamp changedAt;
    std::uint64_t size = 0;
    bool isSettled = false;  ///< changed so long ago that another change would have another time
    std::vector<TurnRecord> told;
  };
  void refresh(const TurnRecordFormat& format, const std::string& path, File& file);

  std::map<std::string, File>& filesOf(const TurnRecordFormat& format);

  const FileActivityProbing& files_;
  /// By format, those that its last records() came to, by path.
  std::vector<std::pair<TurnRecordFormat, std::map<std::string, File>>> known_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
