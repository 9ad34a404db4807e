// Makes this process's kernel refuse system calls with a number of our choice, from now on and for
// good. For children of tests (support/child_process.h), to reach what the library does where a
// file system or a system lacks something. A call is refused whenever its number fits and, if a
// mask is given, all bits of that mask are set in the argument named. False where the kernel
// doesn't let us.
#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <vector>

namespace tarsil::support {

struct refused_call {
    long number;
    int error;
    uint32_t argument = 0;
    uint32_t mask = 0;
};

inline bool refuse_calls(const std::vector<refused_call>& calls)
{
    const auto load = [](size_t from) {
        return sock_filter{BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<uint32_t>(from)};
    };
    std::vector<sock_filter> program;
    for (const refused_call& call : calls) {
        // The low half of an argument, on the machines that we run on (little-endian).
        const size_t argument = offsetof(seccomp_data, args) + 8 * size_t{call.argument};
        const uint32_t answer = SECCOMP_RET_ERRNO | static_cast<uint32_t>(call.error);
        program.push_back(load(offsetof(seccomp_data, nr)));
        program.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 4, static_cast<uint32_t>(call.number)});
        program.push_back(load(argument));
        program.push_back({BPF_ALU | BPF_AND | BPF_K, 0, 0, call.mask});
        program.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call.mask});
        program.push_back({BPF_RET | BPF_K, 0, 0, answer});
    }
    program.push_back({BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW});

    sock_fprog whole = {static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &whole) == 0;
}

} // namespace tarsil::support
