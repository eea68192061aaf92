// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/SystemCallFilter.h"

#include <fcntl.h>
#include <linux/prctl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <memory>

#include "CompressionKit/platform/Descriptor.h"
#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

/// Harmless whatever their arguments: they work on the process itself, on files that are open already, or on
/// paths that Landlock guards. Not every machine has each of them.
constexpr const char* harmless[] = {
    // memory
    "brk", "madvise", "mincore", "mlock", "mmap", "mprotect", "mremap", "mseal", "msync", "munlock", "munmap",
    // threads, and what the C library does at their start
    "arch_prctl", "exit", "exit_group", "futex", "futex_waitv", "get_robust_list", "getcpu", "membarrier",
    "restart_syscall", "rseq", "sched_getaffinity", "sched_setaffinity", "sched_yield", "set_robust_list",
    "set_tid_address",
    // signals to itself
    "pause", "rt_sigaction", "rt_sigpending", "rt_sigprocmask", "rt_sigreturn", "rt_sigsuspend",
    "rt_sigtimedwait", "sigaltstack",
    // time
    "clock_getres", "clock_gettime", "clock_nanosleep", "gettimeofday", "nanosleep", "time", "times",
    // questions about itself and the machine
    "getegid", "geteuid", "getgid", "getgroups", "getpgrp", "getpid", "getppid", "getrandom", "getrlimit",
    "getrusage", "gettid", "getuid", "sysinfo", "uname",
    // open files
    "close", "close_range", "copy_file_range", "dup", "dup2", "dup3", "fadvise64", "fallocate", "fdatasync",
    "fstat", "fstatfs", "fsync", "ftruncate", "getdents", "getdents64", "lseek", "pipe", "pipe2", "poll",
    "ppoll", "pread64", "preadv", "preadv2", "pselect6", "pwrite64", "pwritev", "pwritev2", "read",
    "readahead", "readv", "select", "sendfile", "write", "writev",
    // paths
    "access", "faccessat", "faccessat2", "getcwd", "lstat", "newfstatat", "readlink", "readlinkat", "rename",
    "renameat", "renameat2", "stat", "statfs", "statx", "unlink", "unlinkat"};

/// The libseccomp filter while it is being made. Its functions return negative errno values.
class Builder {
 public:
  Builder() : context_(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)), &seccomp_release) {
    if (!context_) throw failed(ENOMEM);
    // A program has no honest use for the calls of another architecture.
    check(seccomp_attr_set(context_.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS));
    check(seccomp_attr_set(context_.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2));  // a search tree, no list
  }

  /// Admits a call when all conditions hold. One that this machine does not have is left out.
  void allow(const char* name, std::initializer_list<scmp_arg_cmp> conditions = {}) {
    const int number = seccomp_syscall_resolve_name(name);
    if (number < 0) return;
    check(seccomp_rule_add_array(context_.get(), SCMP_ACT_ALLOW, number,
                                 static_cast<unsigned>(conditions.size()), conditions.begin()));
  }

  std::vector<sock_filter> instructions() const {
    const Descriptor file(memfd_create("tidewell-filter", MFD_CLOEXEC));
    if (!file) throw failed(errno);
    check(seccomp_export_bpf(context_.get(), file.get()));
    const off_t size = lseek(file.get(), 0, SEEK_END);
    std::vector<sock_filter> result(static_cast<std::size_t>(size) / sizeof(sock_filter));
    if (size <= 0 || pread(file.get(), result.data(), static_cast<std::size_t>(size), 0) != size) {
      throw failed(EIO);
    }
    return result;
  }

  static FileError failed(int code) { return {"创建", "seccomp", code}; }

 private:
  static void check(int result) {
    if (result < 0) throw failed(-result);
  }
  std::unique_ptr<void, decltype(&seccomp_release)> context_;
};

/// The kernel looks at 32 bits of an `int`; what the others hold is anybody's.
scmp_arg_cmp bits(unsigned argument, std::uint32_t mask, std::uint32_t value) {
  return {.arg = argument, .op = SCMP_CMP_MASKED_EQ, .datum_a = mask, .datum_b = value};
}
scmp_arg_cmp whole(unsigned argument, std::uint32_t value) {
  return bits(argument, ~std::uint32_t{0}, value);
}
scmp_arg_cmp exactly(unsigned argument, std::uint64_t value) {
  return {.arg = argument, .op = SCMP_CMP_EQ, .datum_a = value, .datum_b = 0};
}

/// Landlock before its third edition (Linux 6.2) lets whoever may read a file, or merely open it for neither
/// reading nor writing, empty it with O_TRUNC.
void allowOpening(Builder& builder, const char* name, unsigned flags) {
  builder.allow(name, {bits(flags, O_TRUNC, 0)});
  builder.allow(name, {bits(flags, O_ACCMODE, O_WRONLY)});
  builder.allow(name, {bits(flags, O_ACCMODE, O_RDWR)});
}

std::vector<sock_filter> build(std::uint64_t executionKey) {
  Builder builder;
  for (const char* name : harmless) builder.allow(name);
  allowOpening(builder, "open", 1);
  allowOpening(builder, "openat", 2);
  builder.allow("clone", {bits(0, CLONE_THREAD, CLONE_THREAD)});
  builder.allow("execve", {exactly(3, executionKey)});
  for (const char* name : {"kill", "tgkill"}) builder.allow(name, {whole(0, SystemCallFilter::ownProcess)});
  builder.allow("prlimit64", {whole(0, 0), exactly(2, 0)});  // only asks, and only about itself
  constexpr std::uint32_t setVMA = 0x53564D41;               // names a mapping; newer than some headers
  for (const std::uint32_t option : {std::uint32_t{PR_SET_NAME}, std::uint32_t{PR_GET_NAME}, setVMA}) {
    builder.allow("prctl", {whole(0, option)});
  }
  // Not those that make the kernel send signals.
  for (const std::uint32_t command : {F_DUPFD, F_DUPFD_CLOEXEC, F_GETFD, F_SETFD, F_GETFL, F_SETFL}) {
    builder.allow("fcntl", {whole(1, command)});
  }
  // Close on exec; is it a terminal, and how wide? Other requests type on it, or change a file's flags.
  constexpr std::uint32_t getTerminal2 = 0x802C542A;  // TCGETS2: how newer C libraries ask
  for (const std::uint32_t request :
       {std::uint32_t{FIOCLEX}, std::uint32_t{TCGETS}, getTerminal2, std::uint32_t{TIOCGWINSZ}}) {
    builder.allow("ioctl", {whole(1, request)});
  }
  return builder.instructions();
}

}  // namespace

const SystemCallFilter& SystemCallFilter::forTools() {
  static const SystemCallFilter filter = [] {
    SystemCallFilter result;
    if (getrandom(&result.executionKey, sizeof result.executionKey, 0) != sizeof result.executionKey) {
      throw Builder::failed(errno);
    }
    result.instructions = build(result.executionKey);
    return result;
  }();
  return filter;
}

}  // namespace tidewell
