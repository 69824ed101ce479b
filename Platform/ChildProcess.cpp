#include "Platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "Platform/ChildSystem.h"

namespace wakelatch::platform {
namespace {

void check(int error) {
  if (error != 0) throw std::system_error(error, std::generic_category());
}

/// Everything posix_spawn() is told about a launch beside program and arguments.
class LaunchPlan {
 public:
  LaunchPlan() {
    check(::posix_spawnattr_init(&attributes_));
    if (const int error = ::posix_spawn_file_actions_init(&actions_); error != 0) {
      ::posix_spawnattr_destroy(&attributes_);
      check(error);
    }
  }
  ~LaunchPlan() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  LaunchPlan(const LaunchPlan&) = delete;
  LaunchPlan& operator=(const LaunchPlan&) = delete;

  void resetSignalsAndGroup() {
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    check(::posix_spawnattr_setsigmask(&attributes_, &none));
    check(::posix_spawnattr_setsigdefault(&attributes_, &all));
    check(::posix_spawnattr_setpgroup(&attributes_, 0));
    check(::posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP));
  }
  void connect(const Descriptor& source, int standardStream) {
    check(::posix_spawn_file_actions_adddup2(&actions_, source.get(), standardStream));
  }
  void closeTheRest() { check(inheritOnlyStandardStreams(attributes_, actions_)); }

  pid_t launch(const std::string& executable, const std::vector<std::string>& arguments) const {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 2);
    argv.push_back(const_cast<char*>(executable.c_str()));
    for (const std::string& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t id = 0;
    check(::posix_spawn(&id, executable.c_str(), &actions_, &attributes_, argv.data(),
                        currentEnvironment()));
    return id;
  }

 private:
  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t actions_;
};

Pipe openPipeForChild() {
  Pipe pipe = openPipe();
  for (Descriptor* end : {&pipe.readEnd, &pipe.writeEnd}) {
    *end = aboveStandardStreams(std::move(*end));
    if (end->get() < 0) check(errno);
  }
  return pipe;
}

pid_t launch(const std::string& executable, const std::vector<std::string>& arguments,
             ChildOutput output, Descriptor& standardOutput, Descriptor& standardError) try {
  LaunchPlan plan;
  plan.resetSignalsAndGroup();
  if (output == ChildOutput::inherited) {
    plan.closeTheRest();
    return plan.launch(executable, arguments);
  }
  Pipe out = openPipeForChild(), err = openPipeForChild();
  plan.connect(out.writeEnd, STDOUT_FILENO);
  plan.connect(err.writeEnd, STDERR_FILENO);
  plan.closeTheRest();
  const pid_t id = plan.launch(executable, arguments);
  standardOutput = std::move(out.readEnd);
  standardError = std::move(err.readEnd);
  return id;
} catch (const std::system_error& error) {
  throw LaunchError(error.code(), executable);
}

/// How often to look for the exit where the system gives no notice of it.
constexpr int lookIntervalMilliseconds = 50;

/// Milliseconds from now to `deadline` for poll(), rounded up; 0 when it has passed.
int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  constexpr std::int64_t longest = 3'600'000;
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, longest));
}

}  // namespace

std::chrono::steady_clock::time_point deadlineIn(double seconds) {
  const std::chrono::duration<double> limit(seconds > 0 ? std::min(seconds, 1e9) : 0);
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
}

ChildProcess::ChildProcess(const std::string& executable, const std::vector<std::string>& arguments,
                           ChildOutput output)
    : id_(launch(executable, arguments, output, standardOutput_.pipe, standardError_.pipe)),
      notice_(id_) {}

ChildProcess::~ChildProcess() {
  if (reaped_) return;
  send(SIGKILL);
  reap();
}

bool ChildProcess::awaitExit(double seconds, bool untilLine) {
  const auto deadline = deadlineIn(seconds);
  const bool hadFlooded = hasFlooded();
  for (;;) {
    const bool noticed = notice_.descriptor() >= 0;
    bool exited = !noticed && exitedUnnoticed();
    const int left = exited ? 0 : millisecondsUntil(deadline);
    std::array<pollfd, 3> watched{{{notice_.descriptor(), POLLIN, 0},  // negative ones are skipped
                                   {standardOutput_.pipe.get(), POLLIN, 0},
                                   {standardError_.pipe.get(), POLLIN, 0}}};
    if (::poll(watched.data(), watched.size(),
               noticed ? left : std::min(left, lookIntervalMilliseconds)) < 0) {
      if (errno == EINTR) continue;
      check(errno);
    }
    exited = exited || watched[0].revents != 0;
    if (exited) {
      standardOutput_.readWhatIsThere();
      standardError_.readWhatIsThere();
      return true;
    }
    if (watched[1].revents != 0) standardOutput_.read();
    if (watched[2].revents != 0) standardError_.read();
    if (left == 0 || hasFlooded() != hadFlooded) return false;
    if (untilLine && standardOutput_.text.find('\n') != std::string::npos) return false;
  }
}

void ChildProcess::send(int signal) const {
  if (!reaped_) ::kill(id_, signal);
}

ChildEnd ChildProcess::reap() {
  int status = 0;
  pid_t reapedId = 0;
  do {
    reapedId = ::waitpid(id_, &status, 0);
  } while (reapedId < 0 && errno == EINTR);
  reaped_ = true;
  if (reapedId != id_) {
    const std::optional<int> kept = notice_.waitStatus();
    if (!kept) return {};
    status = *kept;
  }
  if (WIFSIGNALED(status)) return {ChildEnd::Kind::signalled, WTERMSIG(status)};
  return {ChildEnd::Kind::exited, WEXITSTATUS(status)};
}

/// For a child without exit notice: whether it is a zombie or gone.
bool ChildProcess::exitedUnnoticed() const {
  siginfo_t info{};
  if (::waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
    return errno == ECHILD;
  }
  return info.si_pid == id_;
}

std::size_t ChildProcess::Capture::read(std::size_t limit) {
  std::array<char, 65536> block;  // a pipe's usual capacity
  const std::size_t wanted = std::min(limit, block.size());
  ssize_t count = 0;
  do {
    count = ::read(pipe.get(), block.data(), wanted);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) {
    pipe.close();
    return 0;
  }
  const auto length = static_cast<std::size_t>(count);
  const std::size_t kept = std::min(length, maxCapturedBytes - text.size());
  text.append(block.data(), kept);
  if (kept < length) isFlooded = true;
  return length;
}

void ChildProcess::Capture::readWhatIsThere() {
  int available = 0;
  if (pipe.get() < 0 || ::ioctl(pipe.get(), FIONREAD, &available) != 0) return;
  // Not until the end of the file: a grandchild may hold the pipe open, or fill it for ever.
  for (auto left = static_cast<std::size_t>(available); left > 0;) {
    const std::size_t count = read(left);
    if (count == 0) return;
    left -= count;
  }
}

}  // namespace wakelatch::platform
