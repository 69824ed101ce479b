#include "WakelatchCore/ShellCommand.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <utility>

#include "Platform/ChildProcess.h"
#include "Platform/Text.h"
#include "Platform/Utf8.h"

namespace wakelatch {
namespace {

/// The signals for a child whose time is over. SIGKILL always ends it.
constexpr std::array<platform::StopStep, 3> timeoutLadder{
    {{SIGTERM, 0.2}, {SIGINT, 2.0}, {SIGKILL, std::numeric_limits<double>::infinity()}}};

std::string textOrNothing(std::string bytes) {
  return platform::isValidUtf8(bytes) ? std::move(bytes) : std::string();
}

std::string describe(const CommandResult& result) {
  std::string description = result.exitCode == CommandResult::unknownExitCode
                                ? "exit code unknown: this process ignores SIGCHLD or reaps "
                                  "children elsewhere, and the system keeps no other record"
                                : "exit code " + std::to_string(result.exitCode);
  std::string_view line = platform::trimmed(result.standardError);
  line = platform::trimmed(line.substr(0, line.find('\n')));
  constexpr std::size_t readableLength = 200;
  line = platform::firstCharacters(line, readableLength);
  if (!line.empty()) description.append(": ").append(line);
  // A tool's output may reach a terminal by way of the log, so control characters are replaced.
  std::replace_if(
      description.begin(), description.end(),
      [](char c) { return platform::isAscii(c) && (c < ' ' || c == '\x7F'); }, '?');
  return description;
}

/// Reaps a child that has exited.
CommandResult resultOf(platform::ChildProcess& child, const ShellCommand& command) {
  using Kind = platform::ChildEnd::Kind;
  const platform::ChildEnd end = child.reap();
  if (child.hasFlooded()) {
    throw std::runtime_error(command.executable + " printed more than " +
                             std::to_string(platform::maxCapturedBytes >> 20) + " MiB");
  }
  CommandResult result;
  result.exitCode = end.kind == Kind::unknown ? CommandResult::unknownExitCode : end.number;
  result.standardOutput = textOrNothing(child.takeStandardOutput());
  result.standardError = textOrNothing(child.takeStandardError());
  if (result.succeeded()) return result;
  throw CommandRunnerError::nonZeroExit(
      std::move(result), end.kind == Kind::signalled ? std::optional(end.number) : std::nullopt);
}

}  // namespace

CommandRunnerError::CommandRunnerError(CommandResult result, std::optional<std::int32_t> signal)
    : std::runtime_error(describe(result)), result_(std::move(result)), signal_(signal) {}

ProcessCommandRunner::ProcessCommandRunner(double timeoutSeconds)
    : timeoutSeconds_(timeoutSeconds) {}

CommandResult ProcessCommandRunner::run(const ShellCommand& command) {
  platform::ChildProcess child(command.executable, command.arguments,
                               platform::ChildOutput::captured);
  if (!child.awaitExit(timeoutSeconds_)) platform::stop(child, timeoutLadder);
  return resultOf(child, command);
}

CancellableCommandRunner::CancellableCommandRunner(double timeoutSeconds)
    : timeoutSeconds_(timeoutSeconds) {}

CommandResult CancellableCommandRunner::run(const ShellCommand& command) {
  if (cancelled_) throw std::runtime_error(command.executable + " was called off");
  platform::ChildProcess child(command.executable, command.arguments,
                               platform::ChildOutput::captured);
  constexpr double lookSeconds = 0.05;
  const auto start = std::chrono::steady_clock::now();
  const auto secondsLeft = [&] {
    return timeoutSeconds_ -
           std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  bool exited = false;
  do {
    exited = child.awaitExit(std::min(lookSeconds, secondsLeft()));
  } while (!exited && !cancelled_ && !child.hasFlooded() && secondsLeft() > 0);
  if (!exited) platform::stop(child, timeoutLadder);
  return resultOf(child, command);
}

}  // namespace wakelatch
