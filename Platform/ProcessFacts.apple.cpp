#include <libproc.h>
#include <sys/proc_info.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "Platform/ProcessFacts.h"

namespace wakelatch::platform {

std::optional<Timestamp> processStart(std::int32_t pid) {
  proc_bsdinfo info{};
  const int size = sizeof info;
  if (::proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, size) != size) return std::nullopt;
  if (::geteuid() != 0 && info.pbi_uid != ::geteuid()) return std::nullopt;
  return Timestamp(
      std::chrono::duration<double>(static_cast<double>(info.pbi_start_tvsec) +
                                    static_cast<double>(info.pbi_start_tvusec) * 1e-6));
}

bool isConnected(std::int32_t pid) {
  const int bytes = ::proc_pidinfo(pid, PROC_PIDLISTFDS, 0, nullptr, 0);
  if (bytes <= 0) return false;
  // With room for what may have been opened meanwhile.
  std::vector<proc_fdinfo> files(static_cast<std::size_t>(bytes) / sizeof(proc_fdinfo) + 16);
  const int filled = ::proc_pidinfo(pid, PROC_PIDLISTFDS, 0, files.data(),
                                    static_cast<int>(files.size() * sizeof(proc_fdinfo)));
  if (filled <= 0) return false;
  files.resize(static_cast<std::size_t>(filled) / sizeof(proc_fdinfo));
  return std::any_of(files.begin(), files.end(), [pid](const proc_fdinfo& file) {
    if (file.proc_fdtype != PROX_FDTYPE_SOCKET) return false;
    socket_fdinfo info{};
    const int size = sizeof info;
    return ::proc_pidfdinfo(pid, file.proc_fd, PROC_PIDFDSOCKETINFO, &info, size) == size &&
           info.psi.soi_kind == SOCKINFO_TCP &&
           info.psi.soi_proto.pri_tcp.tcpsi_state == TSI_S_ESTABLISHED;
  });
}

}  // namespace wakelatch::platform
