#include "Host/linux/LinuxToolsProcesses.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>
#include <vector>

#include "Host/linux/KernelFiles.h"
#include "Platform/Split.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;

std::vector<std::string_view> piecesOf(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  for (const std::string_view piece : platform::Split(text, separator)) pieces.push_back(piece);
  return pieces;
}

std::vector<pid_t> processIDs(const fs::path& proc) {
  std::vector<pid_t> ids;
  forEachName(proc, [&](std::string_view name) {
    if (const auto id = numberIn<pid_t>(name)) ids.push_back(*id);
  });
  std::sort(ids.begin(), ids.end());
  return ids;
}

/// The command line as the kernel keeps it, each argument ended by a NUL. A process that shortened
/// it to a title leaves more of them behind.
std::string commandLineOf(const fs::path& process) {
  std::string line = kernelFile(process / "cmdline").value_or("");
  line.erase(line.find_last_not_of('\0') + 1);
  return line;
}

/// Empty for a kernel thread, and for another user's process.
std::string executableOf(const fs::path& process) {
  constexpr std::string_view deleted = " (deleted)";
  std::error_code error;
  std::string path = fs::read_symlink(process / "exe", error).native();
  if (path.ends_with(deleted)) path.erase(path.size() - deleted.size());
  return path;
}

/// Whether a process called `name` can have that name from `text`, a path or a title. The kernel
/// takes a file's last component, and keeps 15 bytes of any name.
bool gives(std::string_view text, std::string_view name) {
  const auto begins = [&](std::string_view whole) { return whole.substr(0, 15) == name; };
  return !name.empty() && (begins(text) || begins(platform::baseName(text, '/')));
}

/// See ProcessTable::programName().
std::string programOf(const std::string& name, std::string executable,
                      const std::string& commandLine) {
  if (gives(executable, name)) return executable;  // started by its own name and not renamed since

  const auto arguments = piecesOf(commandLine, '\0');
  const bool titled = !arguments.empty() && gives(arguments[0], name);

  // For a script the kernel puts the interpreter, at most one option of it and the script's path
  // before the arguments, but names the process after the script.
  for (std::size_t i = 1; !titled && i <= 2 && i < arguments.size(); ++i) {
    if (gives(arguments[i], name)) return std::string(arguments[i]);
  }

  // Looks the same for a link by which the executable was started: its name is the better one too.
  if (titled) return std::string(arguments[0]);

  return executable.empty() ? name : executable;
}

std::string oneLine(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
    text.replace(at, 1, "\\012");
  }
  return text;
}

std::string rightAligned(std::string text) {
  constexpr std::size_t width = 5;
  if (text.size() < width) text.insert(0, width - text.size(), ' ');
  return text;
}

/// With one decimal and a point, whatever the locale.
std::string percentText(double percent) {
  const long tenths = std::lround(percent * 10);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

}  // namespace

ProcessTable::ProcessTable(fs::path proc) : proc_(std::move(proc)) {}

std::optional<ProcessTable::Status> ProcessTable::statusOf(const fs::path& process) {
  const std::string stat = kernelFile(process / "stat").value_or("");
  // The second field, a name in parentheses, may itself hold spaces and parentheses.
  const std::size_t nameEnd = stat.rfind(") ");
  if (nameEnd == std::string::npos) return std::nullopt;
  const auto fields = piecesOf(std::string_view(stat).substr(nameEnd + 2), ' ');
  const auto number = [&](std::size_t documented) {  // counted from 1, as in proc(5)
    return documented - 3 < fields.size() ? numberIn<std::uint64_t>(fields[documented - 3])
                                          : std::nullopt;
  };
  const auto parent = number(4), user = number(14), system = number(15), start = number(22);
  if (!parent || !user || !system || !start) return std::nullopt;
  const std::size_t nameBegin = stat.find('(') + 1;
  return Status{.name = stat.substr(nameBegin, nameEnd - nameBegin),
                .parent = static_cast<pid_t>(*parent),
                .hasExited = fields[0] == "Z",
                .startTicks = *start,
                .imageStamp = number(28).value_or(0) ^ number(48).value_or(0),
                .cpuTicks = *user + *system,
                .readAt = Clock::now()};
}

ProcessTable::Sample ProcessTable::takeSample(const Sample* previous) {
  constexpr unsigned rounds = 5;
  const unsigned round = samples_++ % rounds;
  Sample sample{.begun = Clock::now(), .processes = {}};
  for (const pid_t pid : processIDs(proc_)) {
    const fs::path directory = proc_ / std::to_string(pid);
    auto status = statusOf(directory);
    if (!status) continue;
    Process& process =
        sample.processes.emplace_hint(sample.processes.end(), pid, Process())->second;
    process.status = std::move(*status);
    const Status& now = process.status;
    if (previous != nullptr && static_cast<unsigned>(pid) % rounds != round) {
      const auto known = previous->processes.find(pid);
      if (known != previous->processes.end()) {
        const Status& before = known->second.status;
        if (before.startTicks == now.startTicks && before.cpuTicks == now.cpuTicks &&
            before.imageStamp == now.imageStamp && before.hasExited == now.hasExited &&
            before.name == now.name) {
          process.program = known->second.program;
          process.arguments = known->second.arguments;
          continue;
        }
      }
    }
    const std::string commandLine = commandLineOf(directory);
    process.program = now.hasExited
                          ? "<defunct>"
                          : oneLine(programOf(now.name, executableOf(directory), commandLine));
    process.arguments = commandLine.empty() ? now.name : commandLine;
    std::replace(process.arguments.begin(), process.arguments.end(), '\0', ' ');
    process.arguments = oneLine(std::move(process.arguments));
  }
  return sample;
}

double ProcessTable::cpuPercent(const Status& now, const Sample& previous, pid_t pid) {
  static const auto ticksPerSecond = static_cast<double>(::sysconf(_SC_CLK_TCK));
  // One that was not there before had used nothing then.
  std::uint64_t ticksBefore = 0;
  Clock::time_point since = previous.begun;
  const auto found = previous.processes.find(pid);
  if (found != previous.processes.end() && found->second.status.startTicks == now.startTicks) {
    ticksBefore = std::min(found->second.status.cpuTicks, now.cpuTicks);
    since = found->second.status.readAt;
  }
  return 100 * static_cast<double>(now.cpuTicks - ticksBefore) / ticksPerSecond /
         std::chrono::duration<double>(now.readAt - since).count();
}

std::string ProcessTable::usageListing() {
  const platform::MutexLock lock(listing_);
  if (!newest_) newest_ = takeSample(nullptr);
  std::this_thread::sleep_until(newest_->begun + std::chrono::duration<double>(sampleSeconds));
  Sample current = takeSample(&*newest_);

  std::string listing;
  for (const auto& [pid, process] : current.processes) {
    listing += rightAligned(std::to_string(pid)) + " " +
               rightAligned(std::to_string(process.status.parent)) + " " +
               rightAligned(percentText(cpuPercent(process.status, *newest_, pid))) + " " +
               process.program + "\n";
  }
  newest_ = std::move(current);
  return listing;
}

std::string ProcessTable::argumentListing() {
  const platform::MutexLock lock(listing_);
  // A sample of its own would not count as the one before the next usage listing.
  std::optional<Sample> own;
  const std::chrono::duration<double> sameMoment(sampleSeconds / 2);
  if (!newest_ || Clock::now() - newest_->begun > sameMoment) {
    own = takeSample(newest_ ? &*newest_ : nullptr);
  }
  std::string listing;
  for (const auto& [pid, process] : (own ? *own : *newest_).processes) {
    if (process.arguments.empty()) continue;
    listing += rightAligned(std::to_string(pid)) + " " + process.arguments + "\n";
  }
  return listing;
}

std::optional<std::string> ProcessTable::programName(std::string_view pid) const {
  if (!numberIn<pid_t>(pid)) return std::nullopt;
  const fs::path directory = proc_ / pid;
  const auto status = statusOf(directory);
  if (!status) return std::nullopt;
  if (status->hasExited) return "<defunct>";
  return oneLine(programOf(status->name, executableOf(directory), commandLineOf(directory)));
}

}  // namespace wakelatch::host
