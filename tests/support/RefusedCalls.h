// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <vector>

namespace tidewell::test {

/// Makes these system calls (SYS_…) of this thread fail with `error`, until it ends. False where that is not
/// allowed. So a test meets failures that root never meets otherwise.
inline bool refuseCalls(const std::vector<unsigned>& calls, unsigned error) {
  std::vector<sock_filter> program{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const unsigned call : calls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// The calls that remove an entry of a directory.
inline const std::vector<unsigned> removals = {
#ifdef SYS_unlink
    SYS_unlink, SYS_rmdir,
#endif
    SYS_unlinkat};

}  // namespace tidewell::test
