// `wakelatch`: drives the library the way an application would, from the command line.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <variant>

#include "Host/CommandLine.h"
#include "Host/Commands.h"
#include "Host/Notices.h"
#include "Host/Tools.h"

namespace {

using namespace wakelatch::host;

/// Takes the places of standard streams that are closed, each so that using it still fails: a file
/// opened later would take them, and what is printed would go into it.
void occupyClosedStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) >= 0) continue;
    [[maybe_unused]] const int taken =
        ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  occupyClosedStreams();
  ::umask(077);  // which agents work, and when, concerns nobody else
  try {
    const auto parsed = parseCommandLine(argc, argv);
    if (const auto* status = std::get_if<ExitStatus>(&parsed)) return static_cast<int>(*status);
    const auto& line = std::get<CommandLine>(parsed);
    Tools tools(line.toolDirectory);
    const ExitStatus status = std::visit(
        [&tools](const auto& options) { return runCommand(options, tools); }, line.command);
    if (std::cout.flush()) return static_cast<int>(status);
    throw std::runtime_error("standard output could not be written");
  } catch (const std::exception& error) {
    printNotice(error.what());
    return static_cast<int>(ExitStatus::failed);
  }
}
