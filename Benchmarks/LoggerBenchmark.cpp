// The file logger's cost for its caller, compared with an asynchronous spdlog logger, and its
// writing speed, compared with plain open(), write(), close().
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "Benchmarks/SideBySide.h"
#include "WakelatchCore/FileLogger.h"

namespace {

constexpr int lines = 10'000;
constexpr const char* message = "LidStateDetector failed: /usr/sbin/ioreg ended with status 1";

template <class Work>
double secondsOf(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main() {
  const auto directory =
      std::filesystem::temp_directory_path() / ("LoggerBenchmark." + std::to_string(::getpid()));
  std::filesystem::create_directories(directory);

  const auto ourBurst = [&] {
    wakelatch::FileLogger logger(directory / "ours.log");
    return 1e9 / lines * secondsOf([&] {
             for (int i = 0; i < lines; ++i) logger.log(message);
           });
  };
  const auto burstOfQueue = [&](std::size_t queueSize) {
    return [&directory, queueSize] {
      const auto pool = std::make_shared<spdlog::details::thread_pool>(queueSize, 1);
      const auto sink =
          std::make_shared<spdlog::sinks::basic_file_sink_mt>((directory / "spdlog.log").string());
      const auto logger = std::make_shared<spdlog::async_logger>("burst", sink, pool);
      return 1e9 / lines * secondsOf([&] {
               for (int i = 0; i < lines; ++i) logger->info(message);
             });
    };
  };
  // With spdlog's default queue of 8192 lines its caller waits for the disk when the queue is full.
  // This queue has room for the whole burst, with all memory touched beforehand.
  wakelatch::bench::compare("caller's cost of a line, default spdlog", "ns", ourBurst,
                            burstOfQueue(spdlog::details::default_async_q_size), 0.5);
  wakelatch::bench::compare("caller's cost of a line, roomy spdlog", "ns", ourBurst,
                            burstOfQueue(2 * lines), 1);

  const auto ourRate = [&] {
    return lines / secondsOf([&] {
             wakelatch::FileLogger logger(directory / "ours.log");
             for (int i = 0; i < lines; ++i) logger.log(message);
           });
  };
  const auto bareRate = [&] {
    const std::string path = directory / "bare.log";
    const std::string line = std::string("[2025-03-01T14:05:09Z] ") + message + "\n";
    return lines / secondsOf([&] {
             for (int i = 0; i < lines; ++i) {
               const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
               if (::write(fd, line.data(), line.size()) < 0) std::abort();
               ::close(fd);
             }
           });
  };
  wakelatch::bench::compare("lines per second", "", ourRate, bareRate, 0.3, 15, true);
  std::filesystem::remove_all(directory);
}
