// Sources that answer as the machine did when a trace was recorded.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
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

/// Prints what the system's tools would have printed.
struct RecordedTools : CommandRunning {
  CommandResult run(const ShellCommand& command) override {
    const std::string& last = command.arguments.back();
    if (last == "pid=,ppid=,pcpu=,comm=") return {0, usage, ""};
    if (last == "pid=,args=") return {0, arguments, ""};
    if (last == "batt") return {0, battery, ""};
    if (command.executable == "/usr/sbin/ioreg") return {0, lid, ""};
    throw std::logic_error("not in a trace: " + command.executable);
  }

  std::string battery, lid, usage, arguments;
};

/// Knows files by traceKey().
struct RecordedFiles : FileActivityProbing {
  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override {
    const auto found = newest.find(traceKey(patterns));
    return found == newest.end() ? std::nullopt : std::optional(found->second);
  }
  ModificationsByPath sessionModifications(
      const std::vector<std::string>& patterns) const override {
    const auto found = sessions.find(traceKey(patterns));
    return found == sessions.end() ? ModificationsByPath() : found->second;
  }

  TraceTimes newest;
  std::map<std::string, ModificationsByPath> sessions;
};

/// Knows turns by traceKey() and session.
struct RecordedTurns : TurnReading {
  std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override {
    std::vector<TurnRecord> records;
    for (const auto& [name, turn] : told[traceKey(format.globs)]) {
      if (turn.at < since) continue;
      records.push_back({name, turn.state, turn.at});
      if (turn.pid) records.back().pid = static_cast<std::int32_t>(*turn.pid);
    }
    return records;
  }
  std::optional<Timestamp> processStart(std::int32_t pid) override {
    const auto found = started.find(pid);
    return found == started.end() ? std::nullopt : std::optional(found->second);
  }
  bool isConnected(std::int32_t pid) override {
    return std::find(connected.begin(), connected.end(), pid) != connected.end();
  }

  std::map<std::string, std::map<std::string, TraceTurn>> told;
  std::map<std::int32_t, Timestamp> started;
  std::vector<std::int64_t> connected;
};

/// Shows each application as its own only window, whose title is all the text there is.
struct RecordedScreen : platform::Accessibility {
  bool isSupported() const override { return screen.has_value(); }
  bool isTrusted() override { return screen && screen->isTrusted; }
  void requestPermissionPrompt() override {}
  std::vector<platform::RunningApplication> runningApplications() override {
    std::vector<platform::RunningApplication> running;
    for (const TraceApplication& application : screen->applications) {
      running.push_back(
          {application.bundleID, application.name, static_cast<std::int32_t>(running.size())});
    }
    return running;
  }
  Element application(std::int32_t processID) override {
    // No phrase contains this, so that two neighbours never make a third phrase.
    constexpr std::string_view between = " \x01 ";
    const auto& shown = screen->applications.at(static_cast<std::size_t>(processID));
    return std::make_shared<const std::string>(joined(shown.phrases, between));
  }
  Value attribute(const Element& element, std::string_view name, const Limits&) override {
    if (name == "AXFocusedWindow") return element;
    if (name == "AXTitle") return *static_cast<const std::string*>(element.get());
    return {};
  }

  std::optional<TraceScreen> screen;
};

}  // namespace wakelatch::host
