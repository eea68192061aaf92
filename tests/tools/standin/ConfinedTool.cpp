// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// Stands in for a tool that an image has taken over. Tries all that such a tool might, and some of what it
// must be able to. Each attempt is a line on standard output: its name, what is to stop it (as in the table
// below), and whether it went through.
//
//   confined_tool FOLDER     with "original", "key", "victim", "socket" and the directory "work" in it

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

namespace {

std::string folder;

std::string at(const char* name) {
  return folder + "/" + name;
}
bool opens(const std::string& path, int flags) {
  const int file = open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (file >= 0) close(file);
  return file >= 0;
}
bool copies(const char* from, const std::string& to, int flags) {
  const int input = open(from, O_RDONLY | O_CLOEXEC);
  const int output = open(to.c_str(), flags | O_WRONLY | O_CLOEXEC, 0600);
  char data[64];
  const ssize_t count = read(input, data, sizeof data);
  return count > 0 && write(output, data, static_cast<std::size_t>(count)) == count;
}
bool connects() {
  const int end = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, at("socket").c_str(), sizeof address.sun_path - 1);
  return end >= 0 && connect(end, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}
bool child(pid_t pid) {
  if (pid == 0) _exit(0);
  return pid > 0 && waitpid(pid, nullptr, 0) > 0;
}

int original() {
  static const int file = open(at("original").c_str(), O_RDONLY | O_CLOEXEC);
  return file;
}

/// What a call that goes through writes.
union {
  long flags;
  int ends[2];
  rlimit limit;
} answer;

constexpr bool admitted = false, filtered = true;

const struct {
  const char* name;
  int landlock;  ///< edition from which Landlock is to stop it, 0: it is not
  bool filter;   ///< the filter is to stop it
  std::function<bool()> attempt;
} attempts[] = {
    // What a tool does.
    {"read", 0, admitted, [] { return opens(at("original"), O_RDONLY); }},
    {"write", 0, admitted, [] { return copies(at("original").c_str(), at("work/new"), O_CREAT | O_TRUNC); }},
    {"rename", 0, admitted, [] { return rename(at("work/new").c_str(), at("work/output").c_str()) == 0; }},
    {"read-back", 0, admitted,
     [] { return copies(at("work/output").c_str(), at("work/more"), O_CREAT | O_EXCL); }},
    {"remove", 0, admitted, [] { return unlink(at("work/more").c_str()) == 0; }},
    {"thread", 0, admitted, [] { return std::thread([] {}).join(), true; }},
    {"maps", 0, admitted, [] { return opens("/proc/self/maps", O_RDONLY); }},
    {"devices", 0, admitted, [] { return copies("/dev/urandom", "/dev/null", 0); }},
    {"processors", 0, admitted, [] { return opens("/sys/devices/system/cpu/possible", O_RDONLY); }},
    {"own-signal", 0, admitted, [] { return raise(SIGCONT) == 0 && kill(getpid(), SIGCONT) == 0; }},
    {"own-limit", 0, admitted, [] { return sysconf(_SC_OPEN_MAX) > 0; }},
    // Files.
    {"read-key", 1, admitted, [] { return opens(at("key"), O_RDONLY); }},
    {"list", 1, admitted, [] { return opens(folder, O_RDONLY | O_DIRECTORY); }},
    {"read-other-process", 1, admitted,
     [] { return opens("/proc/" + std::to_string(getppid()) + "/environ", O_RDONLY); }},
    {"write-original", 1, admitted, [] { return opens(at("original"), O_WRONLY); }},
    {"make", 1, admitted, [] { return opens(at("made"), O_WRONLY | O_CREAT); }},
    {"empty-original", 3, filtered, [] { return opens(at("original"), O_RDONLY | O_TRUNC); }},
    {"empty-key", 3, filtered, [] { return opens(at("key"), O_ACCMODE | O_TRUNC); }},
    {"truncate", 3, filtered, [] { return truncate(at("original").c_str(), 0) == 0; }},
    {"link", 1, filtered, [] { return link(at("original").c_str(), at("work/link").c_str()) == 0; }},
    {"symlink", 1, filtered, [] { return symlink(at("key").c_str(), at("work/symlink").c_str()) == 0; }},
    {"remove-victim", 1, admitted, [] { return unlink(at("victim").c_str()) == 0; }},
    {"replace", 1, admitted, [] { return rename(at("work/output").c_str(), at("original").c_str()) == 0; }},
    // Attributes.
    {"chmod", 0, filtered, [] { return chmod(at("original").c_str(), 0666) == 0; }},
    {"fchmod", 0, filtered, [] { return fchmod(original(), 0666) == 0; }},
    {"chown", 0, filtered, [] { return lchown(at("original").c_str(), getuid(), getgid()) == 0; }},
    {"utimes", 0, filtered, [] { return utimensat(AT_FDCWD, at("original").c_str(), nullptr, 0) == 0; }},
    {"setxattr", 0, filtered,
     [] { return setxattr(at("original").c_str(), "user.tidewell", "x", 1, 0) == 0; }},
    {"flags", 0, filtered, [] { return ioctl(original(), FS_IOC_GETFLAGS, &answer) == 0; }},
    {"type-ahead", 0, filtered, [] { return ioctl(original(), TIOCSTI, "x") == 0; }},
    // Sockets and processes.
    {"connect", 0, filtered, connects},
    {"socketpair", 0, filtered, [] { return socketpair(AF_UNIX, SOCK_STREAM, 0, answer.ends) == 0; }},
    {"fork", 0, filtered, [] { return child(fork()); }},
    {"vfork", 0, filtered,
     [] { return child(vfork()); }},  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    {"execute", 0, filtered, [] { return execl("/nowhere", "nowhere", nullptr) == 0; }},
    {"kill", 6, filtered, [] { return kill(getppid(), 0) == 0; }},
    {"kill-thread", 6, filtered, [] { return syscall(SYS_tgkill, getppid(), getppid(), 0) == 0; }},
    {"kill-by-file", 0, filtered, [] { return fcntl(original(), F_SETOWN, getppid()) == 0; }},
    {"limit-parent", 0, filtered,
     [] { return prlimit(getppid(), RLIMIT_NOFILE, nullptr, &answer.limit) == 0; }},
    {"trace", 0, filtered, [] { return ptrace(PTRACE_PEEKDATA, getppid(), nullptr, nullptr) != -1; }},
    {"outlive", 0, filtered, [] { return prctl(PR_SET_PDEATHSIG, 0) == 0; }},
    {"leave-group", 0, filtered, [] { return setpgid(0, 0) == 0; }},
    {"memory-file", 0, filtered, [] { return memfd_create("file", 0) >= 0; }},
};

/// Whether the kernel let the call through; what it then thought of the arguments is another matter.
bool wasLetThrough(const std::function<bool()>& attempt) {
  errno = 0;
  return attempt() || (errno != EACCES && errno != EPERM && errno != ENOSYS && errno != EXDEV);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) std::abort();
  folder = arguments[1];
  for (const auto& [name, landlock, filter, attempt] : attempts) {
    std::printf("%s %d %d %d\n", name, landlock, filter, wasLetThrough(attempt));
  }
}
