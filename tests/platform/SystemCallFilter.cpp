#include "SystemCallFilter.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <array>
#include <cstddef>

namespace {

bool Install(int number, unsigned action) {
  std::array<sock_filter, 4> code = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, action),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  sock_fprog program = {static_cast<unsigned short>(code.size()), code.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

}  // namespace

bool FailSystemCall(int number, int error) {
  return Install(number, SECCOMP_RET_ERRNO | static_cast<unsigned>(error));
}

bool EndProcessOnSystemCall(int number) {
  return Install(number, SECCOMP_RET_KILL_PROCESS);
}
