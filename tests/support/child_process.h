// A second process for a test: a lambda in a forked child, driven over a pair of sockets.
//
// The child's lambda is written as the series of its steps; each waits for a next() of the parent,
// and its answer is what next() returns. So the two texts, read side by side, give the order of
// events:
//
//     child_process other([&](child_line& line) {
//         line.step([&] { return LockFile(own_handle, 0, 4); });
//         line.step([&] { return CloseHandle(own_handle); });
//     });
//     EXPECT_EQ(other.next(), 1);
//
// Every wait is bounded: a child that the parent has forgotten ends by itself, and a parent whose
// child doesn't answer throws, which fails its test. The child never returns into the test program:
// it ends after its lambda, without a word and without destructors of what it shares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" void __gcov_dump()
    __attribute__((weak)); // Counts of a coverage build, which _exit would lose.

namespace tarsil::support {

class child_line {
public:
    static constexpr int wait_ms = 30000;

    explicit child_line(int socket) : socket_(socket) {}

    void send(int64_t value) const
    {
        if (::send(socket_, &value, sizeof value, MSG_NOSIGNAL) != sizeof value) lost("send");
    }

    int64_t receive() const
    {
        int64_t value = 0;
        if (!is_waiting(wait_ms) || recv(socket_, &value, sizeof value, 0) != sizeof value)
            lost("wait");
        return value;
    }

    // Whether the other side has sent something (or is gone) that receive would find at once.
    bool is_waiting(int milliseconds = 0) const
    {
        pollfd watched = {socket_, POLLIN, 0};
        return poll(&watched, 1, milliseconds) > 0;
    }

    template <class Step> void step(Step&& action) const
    {
        receive();
        send(static_cast<int64_t>(action()));
    }

private:
    [[noreturn]] static void lost(const char* what)
    {
        throw std::runtime_error(std::string("the other process is gone or silent at a ") + what);
    }

    int socket_;
};

class child_process {
public:
    template <class Body> explicit child_process(Body&& body)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            throw std::runtime_error("no socket pair");
        }
        id_ = fork();
        if (id_ < 0) throw std::runtime_error("no second process");
        close(ends[id_ == 0 ? 0 : 1]);
        socket_ = ends[id_ == 0 ? 1 : 0];
        if (id_ == 0) run_and_exit(body);
    }
    ~child_process()
    {
        if (id_ > 0) ::kill(id_, SIGKILL);
        if (id_ > 0) waitpid(id_, nullptr, 0);
        close(socket_);
    }
    child_process(const child_process&) = delete;
    child_process& operator=(const child_process&) = delete;

    child_line line() const { return child_line(socket_); }

    // Lets the child do its next step and gives the answer.
    int64_t next() const
    {
        line().send(0);
        return line().receive();
    }

    // Waits for the end of the child and gives its wait status: 0 if it went through its lambda.
    int wait_for_end()
    {
        int status = -1;
        if (!line().is_waiting(child_line::wait_ms)) ::kill(id_, SIGKILL);
        waitpid(id_, &status, 0);
        id_ = -1;
        return status;
    }

private:
    // A test may have left the child hardly any room to write.
    static void store_counters()
    {
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_FSIZE, &limit);
        __gcov_dump();
    }

    template <class Body> [[noreturn]] void run_and_exit(Body&& body)
    {
        int code = 0;
        try {
            body(line());
        } catch (const std::exception& why) {
            std::fprintf(stderr, "another process: %s\n", why.what());
            code = 3;
        }
        if (__gcov_dump != nullptr) store_counters();
        _exit(code);
    }

    pid_t id_ = -1;
    int socket_ = -1;
};

// What a child does alone: steps one after the other, each with the answer that it has to have.
struct child_step {
    int64_t expected;
    std::function<int64_t()> action;
    const char* what = "";
};

// False if `begin`, which the child does first, says that this system doesn't allow the test.
inline bool expect_in_child(const std::function<bool()>& begin,
                            const std::vector<child_step>& steps)
{
    child_process child([&](const child_line& line) {
        line.step(begin);
        for (const child_step& each : steps) line.step(each.action);
    });
    if (!child.next()) return false;
    for (const child_step& each : steps) EXPECT_EQ(child.next(), each.expected) << each.what;
    EXPECT_EQ(child.wait_for_end(), 0);
    return true;
}

inline void expect_in_child(const std::vector<child_step>& steps)
{
    expect_in_child([] { return true; }, steps);
}

// Lets the kernel refuse system calls of this process with a number of our choice, from now on and
// for good: for children, to reach what the library does where a file system or a system lacks
// something. A call is refused whenever its number fits and, if a mask is given, all bits of that
// mask are set in the argument named.
struct refused_call {
    long number;
    int error;
    uint32_t argument = 0;
    uint32_t mask = 0;
};

// False where the kernel doesn't let us.
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
