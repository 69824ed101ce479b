#include "Host/linux/LinuxToolsProcesses.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
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

/// A directory of /proc. The inode differs for another process with the same id.
struct ProcessDirectory {
  pid_t pid;
  ino_t inode;
};

/// The processes' directories, by ascending id.
std::vector<ProcessDirectory> processesIn(const fs::path& proc) {
  std::vector<ProcessDirectory> found;
  forEachEntry(proc, [&](const dirent& entry) {
    if (const auto pid = numberIn<pid_t>(entry.d_name)) found.push_back({*pid, entry.d_ino});
  });
  std::sort(found.begin(), found.end(), [](auto& a, auto& b) { return a.pid < b.pid; });
  return found;
}

/// The command line as the kernel keeps it, each argument ended by a NUL. A process that shortened
/// it to a title leaves more of them behind.
std::string commandLineOf(const std::string& process) {
  std::string line = kernelFile(process + "/cmdline").value_or("");
  line.erase(line.find_last_not_of('\0') + 1);
  return line;
}

/// Empty when there is no such link, or when it may not be read.
std::string linkTarget(const std::string& link) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = ::readlink(link.c_str(), target.data(), target.size());
  return {target.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

/// Empty for a kernel thread, and for another user's process.
std::string executableOf(const std::string& process) {
  constexpr std::string_view deleted = " (deleted)";
  std::string path = linkTarget(process + "/exe");
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
  if (gives(executable, name)) return executable;  // not a script, not renamed

  const auto arguments = piecesOf(commandLine, '\0');
  const bool titled = !arguments.empty() && gives(arguments[0], name);

  // For a script the kernel puts the interpreter, at most one option of it and the script's path
  // before the arguments, but names the process after the script.
  for (std::size_t i = 1; !titled && i <= 2 && i < arguments.size(); ++i) {
    if (gives(arguments[i], name)) return std::string(arguments[i]);
  }

  // A process whose executable was started by a link looks the same; the link's name is wanted too.
  if (titled) return std::string(arguments[0]);

  return executable.empty() ? name : executable;
}

std::string oneLine(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
    text.replace(at, 1, "\\012");
  }
  return text;
}

void appendAligned(std::string& line, const std::string& text) {
  constexpr std::size_t width = 5;
  if (text.size() < width) line.append(width - text.size(), ' ');
  line.append(text).push_back(' ');
}

/// One decimal and a decimal point in any locale.
std::string percentText(double percent) {
  const long tenths = std::lround(percent * 10);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
}

double ticksPerSecond() {
  static const auto rate = static_cast<double>(::sysconf(_SC_CLK_TCK));
  return rate;
}

std::optional<std::chrono::nanoseconds> timeOf(clockid_t clock) {
  timespec time{};
  if (::clock_gettime(clock, &time) != 0) return std::nullopt;
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The CPU time that a process has used; absent if the kernel does not say.
std::optional<std::chrono::nanoseconds> cpuTimeOf(pid_t pid) {
  clockid_t clock{};
  return ::clock_getcpuclockid(pid, &clock) == 0 ? timeOf(clock) : std::nullopt;
}

}  // namespace

ProcessTable::ProcessTable(const fs::path& proc) : proc_(proc.native() + "/") {}

std::optional<ProcessTable::Status> ProcessTable::statusOf(const std::string& directory) {
  const std::string stat = kernelFile(directory + "/stat").value_or("");
  // The second field, a name in parentheses, may itself hold spaces and parentheses.
  const std::size_t nameBegin = stat.find('(') + 1, nameEnd = stat.rfind(") ");
  if (nameEnd == std::string::npos) return std::nullopt;
  Status status;
  status.name = stat.substr(nameBegin, nameEnd - nameBegin);
  status.readAt = Clock::now();
  int field = 3;  // counted from 1, as in proc(5)
  for (const std::string_view text :
       platform::Split(std::string_view(stat).substr(nameEnd + 2), ' ')) {
    const auto number = [&] { return numberIn<std::uint64_t>(text).value_or(0); };
    if (field == 3) status.hasExited = text == "Z";
    if (field == 4) status.parent = static_cast<pid_t>(number());
    if (field == 14 || field == 15) status.cpuTicks += number();
    if (field == 22) status.startTicks = number();
    if (field == 28 || field == 48) status.imageStamp ^= number();
    if (field++ == 48) break;
  }
  if (field <= 22) return std::nullopt;
  return status;
}

void ProcessTable::readNames(Process& process, const std::string& directory) {
  const Status& status = process.status;
  process.arguments = commandLineOf(directory);
  process.program =
      status.hasExited
          ? "<defunct>"
          : oneLine(programOf(status.name, executableOf(directory), process.arguments));
  if (process.arguments.empty()) process.arguments = status.name;
  std::replace(process.arguments.begin(), process.arguments.end(), '\0', ' ');
  process.arguments = oneLine(std::move(process.arguments));
}

double ProcessTable::cpuPercent(const Status& now, const Status* before, Clock::time_point since) {
  // A new process counts from the previous sample, with no CPU use before.
  std::uint64_t ticksBefore = 0;
  if (before != nullptr) {
    ticksBefore = std::min(before->cpuTicks, now.cpuTicks);
    since = before->readAt;
  }
  return 100 * static_cast<double>(now.cpuTicks - ticksBefore) / ticksPerSecond() /
         std::chrono::duration<double>(now.readAt - since).count();
}

/// Reads the parents again that have exited: a process gets a new parent without having run itself.
void ProcessTable::findParents(Sample& sample) const {
  const auto isBefore = [](const Process& process, pid_t pid) { return process.pid < pid; };
  auto& all = sample.processes;
  for (Process& process : all) {
    const pid_t parent = process.status.parent;
    const auto found = std::lower_bound(all.begin(), all.end(), parent, isBefore);
    if (found != all.end() && found->pid == parent && !found->status.hasExited) continue;
    const auto status = statusOf(proc_ + std::to_string(process.pid));
    if (status) process.status.parent = status->parent;
  }
}

ProcessTable::Sample ProcessTable::takeSample(Sample previous, bool isQuiet) const {
  constexpr unsigned rounds = 5;
  const std::chrono::duration<double> sinceBoot =
      timeOf(CLOCK_BOOTTIME).value_or(Clock::duration());
  const double youngFrom = (sinceBoot.count() - youngSeconds) * ticksPerSecond();
  // If /proc shows another process id namespace, system calls with its ids would reach other
  // processes.
  const bool hasClocks = linkTarget(proc_ + "self") == std::to_string(::getpid());
  Sample sample{.begun = Clock::now(), .round = (previous.round + 1) % rounds, .processes = {}};
  auto known = previous.processes.begin();
  for (const auto& [pid, inode] : processesIn(proc_)) {
    while (known != previous.processes.end() && known->pid < pid) ++known;
    Process* before = known != previous.processes.end() && known->pid == pid ? &*known : nullptr;
    const bool isTurn = static_cast<unsigned>(pid) % rounds == sample.round;
    const bool isSame = before && before->inode == inode;
    const bool isPassedOver =
        isQuiet && !isTurn && isSame && static_cast<double>(before->status.startTicks) < youngFrom;
    const auto cpuTime = hasClocks && !isPassedOver ? cpuTimeOf(pid) : std::nullopt;
    const bool hasRested = isSame && cpuTime && before->cpuTime == cpuTime;
    if (isPassedOver || (hasRested && (isQuiet || !isTurn))) {
      if (hasRested) before->status.readAt = Clock::now();
      before->cpuPercent = 0;
      sample.processes.push_back(std::move(*before));
      continue;
    }
    const std::string directory = proc_ + std::to_string(pid);
    auto status = statusOf(directory);
    if (!status) continue;
    if (before && before->status.startTicks != status->startTicks) before = nullptr;
    Process& now = sample.processes.emplace_back();
    now.pid = pid;
    now.inode = inode;
    now.cpuTime = cpuTime;
    now.cpuPercent = cpuPercent(*status, before ? &before->status : nullptr, previous.begun);
    now.status = std::move(*status);
    if ((hasRested || !isTurn) && before && before->status.isAs(now.status)) {
      now.program = std::move(before->program);
      now.arguments = std::move(before->arguments);
    } else {
      readNames(now, directory);
    }
  }
  findParents(sample);
  return sample;
}

std::string ProcessTable::usageListing() {
  const platform::MutexLock lock(listing_);
  const bool isQuiet = newest_ && isQuiet_;
  if (!newest_) newest_ = takeSample({}, false);
  std::this_thread::sleep_until(newest_->begun + std::chrono::duration<double>(sampleSeconds));
  newest_ = takeSample(*std::exchange(newest_, std::nullopt), isQuiet);

  std::string listing;
  for (const Process& process : newest_->processes) {
    appendAligned(listing, std::to_string(process.pid));
    appendAligned(listing, std::to_string(process.status.parent));
    appendAligned(listing, percentText(process.cpuPercent));
    listing.append(process.program).push_back('\n');
  }
  return listing;
}

std::string ProcessTable::argumentListing() {
  const platform::MutexLock lock(listing_);
  // Without a fresh sample a separate one is taken. It is not kept: the next usage listing measures
  // CPU use from the previous usage listing.
  Sample own;
  const std::chrono::duration<double> sameMoment(sampleSeconds / 2);
  const bool isFresh = newest_ && Clock::now() - newest_->begun <= sameMoment;
  if (!isFresh) own = takeSample({}, false);
  std::string listing;
  for (const Process& process : (isFresh ? *newest_ : own).processes) {
    if (process.arguments.empty()) continue;
    appendAligned(listing, std::to_string(process.pid));
    listing.append(process.arguments).push_back('\n');
  }
  return listing;
}

std::optional<std::string> ProcessTable::programName(std::string_view pid) const {
  if (!numberIn<pid_t>(pid)) return std::nullopt;
  const std::string directory = proc_ + std::string(pid);
  const auto status = statusOf(directory);
  if (!status) return std::nullopt;
  if (status->hasExited) return "<defunct>";
  return oneLine(programOf(status->name, executableOf(directory), commandLineOf(directory)));
}

}  // namespace wakelatch::host
