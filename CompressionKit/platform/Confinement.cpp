// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/Confinement.h"

#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/SystemCallFilter.h"

namespace tidewell {
namespace {

/// Landlock's interface as we use it: the kernel that runs decides what counts, not the headers we were
/// built with.
namespace landlock {

constexpr std::uint32_t askForVersion = 1;
constexpr int pathBeneath = 1;

constexpr std::uint64_t execute = 1 << 0;
constexpr std::uint64_t writeFile = 1 << 1;
constexpr std::uint64_t readFile = 1 << 2;
constexpr std::uint64_t readDirectory = 1 << 3;
constexpr std::uint64_t removeFile = 1 << 5;
constexpr std::uint64_t makeRegular = 1 << 8;
constexpr std::uint64_t truncate = 1 << 14;

/// Rights that a rule for a file may name.
constexpr std::uint64_t ofFiles = execute | writeFile | readFile | truncate;

struct RulesetAttributes {
  std::uint64_t files = 0;   ///< rights that are refused wherever no rule grants them
  std::uint64_t ports = 0;   ///< the same for TCP
  std::uint64_t scopes = 0;  ///< what stays among the confined
};

struct [[gnu::packed]] PathRule {
  std::uint64_t rights;
  std::int32_t descriptor;
};

/// All that this edition of the interface can refuse.
constexpr RulesetAttributes everything(int abi) {
  RulesetAttributes result{.files = (1 << 13) - 1, .ports = 0, .scopes = 0};
  if (abi >= 2) result.files |= 1 << 13;  // moves between directories: never allowed before
  if (abi >= 3) result.files |= truncate;
  if (abi >= 5) result.files |= 1 << 15;  // ioctl on devices
  if (abi >= 4) result.ports = 0b11;      // bind, connect
  if (abi >= 6) result.scopes = 0b11;     // abstract sockets, signals
  return result;
}

int addRule(int ruleset, int descriptor, std::uint64_t rights) {
  const PathRule rule{.rights = rights, .descriptor = descriptor};
  return static_cast<int>(syscall(SYS_landlock_add_rule, ruleset, pathBeneath, &rule, 0));
}

}  // namespace landlock

constexpr std::uint64_t reading = landlock::readFile | landlock::readDirectory;
constexpr std::uint64_t writing =
    reading | landlock::writeFile | landlock::truncate | landlock::makeRegular | landlock::removeFile;

/// What every program needs, all of it public. The C library asks for the number of processors and, where
/// its settings say so, for the size of large pages: without that, the settings are lost.
constexpr struct {
  const char* path;
  std::uint64_t rights;
} common[] = {
    {"/usr", reading},
    {"/lib", reading | landlock::execute},  // the loader is among the libraries, and is executed
    {"/lib64", reading | landlock::execute},
    {"/etc/ld.so.cache", landlock::readFile},
    {"/etc/ld.so.preload", landlock::readFile},
    {"/dev/null", landlock::readFile | landlock::writeFile},
    {"/dev/urandom", landlock::readFile},
    {"/sys/devices/system/cpu", reading},
    {"/sys/kernel/mm/hugepages", reading},
    {"/sys/kernel/mm/transparent_hugepage", reading},
};

class Ruleset {
 public:
  explicit Ruleset(int abi) {
    const landlock::RulesetAttributes attributes = landlock::everything(abi);
    handled_ = attributes.files;
    descriptor_ =
        Descriptor(static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0)));
    if (!descriptor_) throw FileError("创建", "landlock", errno);
  }

  /// A path that cannot be opened stays out of reach, and the program says what it misses.
  void allow(const char* path, std::uint64_t rights) const {
    const Descriptor file(open(path, O_PATH | O_CLOEXEC));
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0) return;
    rights &= S_ISDIR(info.st_mode) ? handled_ : handled_ & landlock::ofFiles;
    if (landlock::addRule(descriptor_.get(), file.get(), rights) != 0) throw FileError("限制", path, errno);
  }

  Descriptor release() { return std::move(descriptor_); }

 private:
  Descriptor descriptor_;
  std::uint64_t handled_ = 0;
};

}  // namespace

Confinement::Means Confinement::available() {
  const char* wish = std::getenv("TIDEWELL_CONFINE");
  if (wish && std::string_view(wish) == "off") return {};
  const long abi = syscall(SYS_landlock_create_ruleset, nullptr, 0, landlock::askForVersion);
  const std::uint32_t refusal = SECCOMP_RET_ERRNO;
  return {.landlockABI = static_cast<int>(std::max(abi, 0L)),
          .seccomp = syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &refusal) == 0,
          .limits = true};
}

ChildConfinement::ChildConfinement(const Confinement& confinement, const URL& executable) {
  if (confinement.means.landlockABI > 0) {
    Ruleset ruleset(confinement.means.landlockABI);
    for (const auto& [path, rights] : common) ruleset.allow(path, rights);
    ruleset.allow(executable.path().c_str(), landlock::readFile | landlock::execute);
    for (const URL& url : confinement.readable) ruleset.allow(url.path().c_str(), reading);
    for (const URL& url : confinement.writable) ruleset.allow(url.path().c_str(), writing);
    ruleset_ = ruleset.release();
  }
  if (confinement.means.seccomp) {
    filter_ = SystemCallFilter::forTools().instructions;
    executionKey_ = SystemCallFilter::forTools().executionKey;
  }
  if (confinement.means.limits) {
    limit(RLIMIT_AS, confinement.maximumMemory);
    limit(RLIMIT_FSIZE, confinement.maximumFileSize);
  }
}

/// Never beyond what we may use ourselves, which nobody can pass on.
void ChildConfinement::limit(int resource, std::optional<std::uint64_t> bytes) {
  rlimit ours{};
  if (!bytes) return;
  if (getrlimit(static_cast<__rlimit_resource>(resource), &ours) != 0)
    throw FileError("限制", "rlimit", errno);
  const rlim_t value = std::min<rlim_t>(*bytes, ours.rlim_cur);
  limits_.emplace_back(resource, rlimit{.rlim_cur = value, .rlim_max = value});
}

int ChildConfinement::apply() noexcept {
  for (const auto& [resource, value] : limits_) {
    if (setrlimit(static_cast<__rlimit_resource>(resource), &value) != 0) return errno;
  }
  if (!ruleset_ && filter_.empty()) return 0;
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return errno;
  if (ruleset_) {
    // Only now does this name the process in question.
    const int self = open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (self >= 0) {
      landlock::addRule(ruleset_.get(), self, reading);
      close(self);
    }
    if (syscall(SYS_landlock_restrict_self, ruleset_.get(), 0) != 0) return errno;
  }
  if (!filter_.empty()) {
    for (sock_filter& instruction : filter_) {
      if (BPF_CLASS(instruction.code) == BPF_JMP && instruction.k == SystemCallFilter::ownProcess) {
        instruction.k = static_cast<std::uint32_t>(getpid());
      }
    }
    const sock_fprog program{.len = static_cast<unsigned short>(filter_.size()), .filter = filter_.data()};
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) != 0) return errno;
  }
  return 0;
}

void ChildConfinement::execute(const char* path, char* const* arguments,
                               char* const* environment) const noexcept {
  syscall(SYS_execve, path, arguments, environment, executionKey_);
}

}  // namespace tidewell
