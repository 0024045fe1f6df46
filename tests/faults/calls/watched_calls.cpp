// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/watched_calls.hpp"

#include <sys/syscall.h>

#include <algorithm>

namespace zot::test {

const std::vector<watched_call> &watched_calls() {
  static const std::vector<watched_call> calls = {
#ifdef SYS_access
      {SYS_access, "access"},
#endif
#ifdef SYS_chmod
      {SYS_chmod, "chmod"},
#endif
      {SYS_clone, "clone"},
#ifdef SYS_clone3
      {SYS_clone3, "clone3"},
#endif
      {SYS_close, "close"},
      {SYS_connect, "connect"},
#ifdef SYS_copy_file_range
      {SYS_copy_file_range, "copy_file_range"},
#endif
#ifdef SYS_creat
      {SYS_creat, "creat"},
#endif
#ifdef SYS_dup
      {SYS_dup, "dup"},
#endif
#ifdef SYS_dup2
      {SYS_dup2, "dup2"},
#endif
#ifdef SYS_dup3
      {SYS_dup3, "dup3"},
#endif
      {SYS_execve, "execve"},
#ifdef SYS_faccessat
      {SYS_faccessat, "faccessat"},
#endif
#ifdef SYS_faccessat2
      {SYS_faccessat2, "faccessat2"},
#endif
#ifdef SYS_fadvise64
      {SYS_fadvise64, "fadvise64"},
#endif
#ifdef SYS_fchmod
      {SYS_fchmod, "fchmod"},
#endif
#ifdef SYS_fchmodat
      {SYS_fchmodat, "fchmodat"},
#endif
#ifdef SYS_fchown
      {SYS_fchown, "fchown"},
#endif
#ifdef SYS_fchownat
      {SYS_fchownat, "fchownat"},
#endif
#ifdef SYS_fcntl
      {SYS_fcntl, "fcntl"},
#endif
#ifdef SYS_fdatasync
      {SYS_fdatasync, "fdatasync"},
#endif
#ifdef SYS_flock
      {SYS_flock, "flock"},
#endif
#ifdef SYS_fork
      {SYS_fork, "fork"},
#endif
      {SYS_fstat, "fstat"},
#ifdef SYS_fstatfs
      {SYS_fstatfs, "fstatfs"},
#endif
#ifdef SYS_fsync
      {SYS_fsync, "fsync"},
#endif
#ifdef SYS_ftruncate
      {SYS_ftruncate, "ftruncate"},
#endif
#ifdef SYS_getdents64
      {SYS_getdents64, "getdents64"},
#endif
#ifdef SYS_getpeername
      {SYS_getpeername, "getpeername"},
#endif
#ifdef SYS_getsockname
      {SYS_getsockname, "getsockname"},
#endif
#ifdef SYS_getsockopt
      {SYS_getsockopt, "getsockopt"},
#endif
#ifdef SYS_ioctl
      {SYS_ioctl, "ioctl"},
#endif
#ifdef SYS_link
      {SYS_link, "link"},
#endif
#ifdef SYS_linkat
      {SYS_linkat, "linkat"},
#endif
#ifdef SYS_lseek
      {SYS_lseek, "lseek"},
#endif
#ifdef SYS_lstat
      {SYS_lstat, "lstat"},
#endif
#ifdef SYS_mkdir
      {SYS_mkdir, "mkdir"},
#endif
#ifdef SYS_mkdirat
      {SYS_mkdirat, "mkdirat"},
#endif
      {SYS_mmap, "mmap"},
#ifdef SYS_newfstatat
      {SYS_newfstatat, "newfstatat"},
#endif
#ifdef SYS_open
      {SYS_open, "open"},
#endif
      {SYS_openat, "openat"},
#ifdef SYS_openat2
      {SYS_openat2, "openat2"},
#endif
#ifdef SYS_pipe
      {SYS_pipe, "pipe"},
#endif
#ifdef SYS_pipe2
      {SYS_pipe2, "pipe2"},
#endif
#ifdef SYS_poll
      {SYS_poll, "poll"},
#endif
#ifdef SYS_ppoll
      {SYS_ppoll, "ppoll"},
#endif
#ifdef SYS_pread64
      {SYS_pread64, "pread64"},
#endif
#ifdef SYS_pselect6
      {SYS_pselect6, "pselect6"},
#endif
#ifdef SYS_pwrite64
      {SYS_pwrite64, "pwrite64"},
#endif
      {SYS_read, "read", byte_flow::in},
#ifdef SYS_readlink
      {SYS_readlink, "readlink"},
#endif
#ifdef SYS_readlinkat
      {SYS_readlinkat, "readlinkat"},
#endif
#ifdef SYS_recvfrom
      {SYS_recvfrom, "recvfrom", byte_flow::in},
#endif
#ifdef SYS_rename
      {SYS_rename, "rename"},
#endif
#ifdef SYS_renameat
      {SYS_renameat, "renameat"},
#endif
#ifdef SYS_renameat2
      {SYS_renameat2, "renameat2"},
#endif
#ifdef SYS_rmdir
      {SYS_rmdir, "rmdir"},
#endif
#ifdef SYS_select
      {SYS_select, "select"},
#endif
#ifdef SYS_sendto
      {SYS_sendto, "sendto", byte_flow::out},
#endif
#ifdef SYS_setsockopt
      {SYS_setsockopt, "setsockopt"},
#endif
      {SYS_socket, "socket"},
#ifdef SYS_stat
      {SYS_stat, "stat"},
#endif
#ifdef SYS_statfs
      {SYS_statfs, "statfs"},
#endif
#ifdef SYS_statx
      {SYS_statx, "statx"},
#endif
#ifdef SYS_symlink
      {SYS_symlink, "symlink"},
#endif
#ifdef SYS_symlinkat
      {SYS_symlinkat, "symlinkat"},
#endif
#ifdef SYS_sync
      {SYS_sync, "sync"},
#endif
#ifdef SYS_syncfs
      {SYS_syncfs, "syncfs"},
#endif
#ifdef SYS_unlink
      {SYS_unlink, "unlink"},
#endif
#ifdef SYS_unlinkat
      {SYS_unlinkat, "unlinkat"},
#endif
#ifdef SYS_utimensat
      {SYS_utimensat, "utimensat"},
#endif
#ifdef SYS_vfork
      {SYS_vfork, "vfork"},
#endif
      {SYS_wait4, "wait4"},
#ifdef SYS_waitid
      {SYS_waitid, "waitid"},
#endif
      {SYS_write, "write", byte_flow::out},
#ifdef SYS_writev
      {SYS_writev, "writev"},
#endif
  };
  return calls;
}

const watched_call *find_call(int number) {
  const std::vector<watched_call> &calls = watched_calls();
  const auto found = std::ranges::find(calls, number, &watched_call::number);
  return found != calls.end() ? &*found : nullptr;
}

bool is_link_call(int number) {
#ifdef SYS_link
  if (number == SYS_link) {
    return true;
  }
#endif
  return number == SYS_linkat;
}

std::string call_name(int number) {
  const watched_call *const call = find_call(number);
  return call != nullptr ? call->name : std::to_string(number);
}

}  // namespace zot::test
