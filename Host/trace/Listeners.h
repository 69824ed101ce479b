// Sources that pass on the machine's answers and keep them for a recording. To be used from the
// recording thread only.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Host/trace/Trace.h"
#include "Platform/Accessibility.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/TurnRecords.h"

namespace wakelatch::host {

/// Runs commands and keeps the output of `ps` listings.
class ToolListener : public CommandRunning {
 public:
  explicit ToolListener(CommandRunning& machine) : machine_(machine) {}

  CommandResult run(const ShellCommand& command) override {
    if (command.executable != "/bin/ps" || command.arguments.size() != 2) {
      return machine_.run(command);
    }
    const bool isUsage = command.arguments[1].find("pcpu=") != std::string::npos;
    std::string& listing = isUsage ? usage : arguments;
    listing.clear();
    CommandResult result = machine_.run(command);
    listing = result.standardOutput;
    return result;
  }

  std::string usage, arguments;  ///< the listings of the last look; empty if they failed

 private:
  CommandRunning& machine_;
};

/// Keeps the answers about files.
class FileListener : public FileActivityProbing {
 public:
  explicit FileListener(const FileActivityProbing& machine) : machine_(machine) {}

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override {
    const auto time = machine_.newestModification(patterns);
    newest[traceKey(patterns)] = time.value_or(Timestamp());
    return time;
  }

  /// Keeps an hour more than was asked for: when the clock is set back, a replay counts files whose
  /// times lie before `since` here.
  ModificationsByPath recentModifications(const std::vector<std::string>& patterns,
                                          Timestamp since) const override {
    constexpr double margin = 3600;
    ModificationsByPath& kept = sessions[traceKey(patterns)];
    kept = machine_.recentModifications(patterns, after(since, -margin));
    ModificationsByPath files = kept;
    std::erase_if(files, [since](const auto& file) { return file.second < since; });
    return files;
  }

  mutable TraceTimes newest;  ///< by traceKey(); 0 if there is no file
  mutable std::map<std::string, ModificationsByPath> sessions;  ///< by traceKey()

 private:
  const FileActivityProbing& machine_;
};

/// Keeps the answers about turn records and processes.
class TurnListener : public TurnReading {
 public:
  explicit TurnListener(TurnReading& machine) : machine_(machine) {}

  std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override {
    return told[traceKey(format.globs)] = machine_.records(format, since);
  }
  std::optional<Timestamp> processStart(std::int32_t pid) override {
    const auto start = machine_.processStart(pid);
    if (start) started[std::to_string(pid)] = *start;
    return start;
  }
  bool isConnected(std::int32_t pid) override {
    const bool is = machine_.isConnected(pid);
    if (is) connected.push_back(pid);
    return is;
  }

  std::map<std::string, std::vector<TurnRecord>> told;  ///< by traceKey()
  TraceTimes started;                                   ///< by pid, from this look and earlier ones
  std::vector<std::int64_t> connected;  ///< pids, in this look; to be cleared by the reader

 private:
  TurnReading& machine_;
};

/// Keeps the texts of the applications that are read.
class ScreenListener : public platform::Accessibility {
 public:
  explicit ScreenListener(Accessibility& machine) : machine_(machine) {}

  bool isSupported() const override { return machine_.isSupported(); }
  bool isTrusted() override { return isTrustedNow = machine_.isTrusted(); }
  void requestPermissionPrompt() override { machine_.requestPermissionPrompt(); }
  std::vector<platform::RunningApplication> runningApplications() override {
    texts.clear();
    return running = machine_.runningApplications();
  }
  Element application(std::int32_t processID) override {
    texts.emplace_back(processID, "");
    return machine_.application(processID);
  }
  Value attribute(const Element& element, std::string_view name, const Limits& limits) override {
    Value value = machine_.attribute(element, name, limits);
    const auto* text = std::get_if<std::string>(&value);
    if (text != nullptr && !texts.empty()) texts.back().second.append(" ").append(*text);
    return value;
  }

  bool isTrustedNow = false;
  std::vector<platform::RunningApplication> running;
  std::vector<std::pair<std::int32_t, std::string>> texts;  ///< text by pid, in order of reading

 private:
  Accessibility& machine_;
};

}  // namespace wakelatch::host
