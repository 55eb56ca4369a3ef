// The filters of system calls, of every architecture: their instructions are carried out here.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/seccomp.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <csignal>

#include "guard/probe_filter.h"
#include "guard/sanitized_build.h"

namespace koli::test {

constexpr uint32_t kArchitectures[] = {AUDIT_ARCH_X86_64, AUDIT_ARCH_AARCH64, AUDIT_ARCH_ARM, AUDIT_ARCH_I386,
                                       AUDIT_ARCH_S390X};
constexpr int kCount = 5;
constexpr uint32_t kOwnPid = 0x4B6F6C69;  // as long as no child has entered the filter

enum Answer : uint32_t {
    kPass = SECCOMP_RET_ALLOW,
    kRefused = SECCOMP_RET_ERRNO | EPERM,
    kDeadly = SECCOMP_RET_KILL_THREAD,
    kUnknownInstruction = 1,
};

struct Call {
    const char* name;
    int numbers[kCount];  // of each architecture; -1 = it has none
    std::array<uint64_t, 6> arguments;
    Answer probe, program;
};

constexpr uint64_t kPrivate = MAP_PRIVATE | MAP_ANONYMOUS;
constexpr Answer kForReports = kSanitizedBuild ? kPass : kRefused;

constexpr Call kCalls[] = {
    {"read", {0, 63, 3, 3, 3}, {}, kPass, kPass},
    {"_llseek", {-1, -1, 140, 140, -1}, {}, kPass, kPass},
    {"brk", {12, 214, 45, 45, 45}, {}, kPass, kPass},
    {"exit_group", {231, 94, 248, 252, 248}, {}, kPass, kPass},
    {"rt_sigreturn", {15, 139, 173, 173, 173}, {}, kPass, kPass},
    {"sigreturn", {-1, -1, 119, 119, 119}, {}, kPass, kPass},
    {"futex", {202, 98, 240, 240, 238}, {}, kPass, kPass},
    {"futex_time64", {-1, -1, 422, 422, -1}, {}, kPass, kPass},
    {"clock_gettime", {228, 113, 403, 403, 260}, {}, kPass, kPass},
    {"tgkill, abort", {234, 131, 268, 270, 241}, {kOwnPid, 7, SIGABRT}, kPass, kRefused},
    {"tgkill, other", {234, 131, 268, 270, 241}, {9, 9, SIGABRT}, kRefused, kRefused},
    {"tgkill, signal", {234, 131, 268, 270, 241}, {kOwnPid, 7, SIGSTOP}, kRefused, kRefused},

    {"mmap", {9, 222, 192, 192, -1}, {0, 4096, PROT_READ | PROT_WRITE, kPrivate}, kPass, kPass},
    {"mmap, code", {9, 222, 192, 192, -1}, {0, 4096, PROT_READ | PROT_EXEC, kPrivate}, kRefused, kPass},
    {"mmap, shared", {9, 222, 192, 192, -1}, {0, 4096, PROT_READ, MAP_SHARED}, kRefused, kPass},
    {"mmap, locked", {9, 222, 192, 192, -1}, {0, 4096, PROT_READ, kPrivate | MAP_LOCKED}, kRefused, kPass},
    {"mmap, huge", {9, 222, 192, 192, -1}, {0, 4096, PROT_READ, kPrivate | MAP_HUGETLB}, kRefused, kPass},
    {"mmap, by address", {-1, -1, -1, 90, 90}, {4096, 0, 0, kPrivate}, kRefused, kPass},
    {"mprotect", {10, 226, 125, 125, 125}, {0, 4096, PROT_READ | PROT_WRITE}, kPass, kPass},
    {"mprotect, code", {10, 226, 125, 125, 125}, {0, 4096, PROT_WRITE | PROT_EXEC}, kRefused, kPass},
    {"pkey_mprotect", {329, 288, 394, 380, 384}, {0, 4096, PROT_READ}, kRefused, kPass},
    {"remap_file_pages", {216, 234, 253, 257, 267}, {}, kRefused, kPass},
    {"madvise", {28, 233, 220, 219, 219}, {0, 4096, MADV_DONTNEED}, kPass, kPass},
    {"madvise, poison", {28, 233, 220, 219, 219}, {0, 4096, MADV_HWPOISON}, kForReports, kPass},
    {"shmat", {30, 196, 305, 397, 397}, {}, kRefused, kRefused},
    {"ipc", {-1, -1, -1, 117, 117}, {21}, kRefused, kRefused},
    {"memfd_create", {319, 279, 385, 356, 350}, {}, kRefused, kPass},

    {"fadvise64", {221, 223, -1, -1, 253}, {4, 0, 0, POSIX_FADV_WILLNEED}, kPass, kPass},
    {"fadvise64, other", {221, 223, -1, -1, 253}, {4, 0, 0, POSIX_FADV_DONTNEED}, kRefused, kPass},
    {"fadvise64_64", {-1, -1, -1, 272, -1}, {4, 0, 0, 0, 0, POSIX_FADV_WILLNEED}, kPass, kPass},
    {"fadvise64_64, other", {-1, -1, -1, 272, -1}, {4, 0, 0, 3, 0, POSIX_FADV_DONTNEED}, kRefused, kPass},
    {"fadvise64, of i386", {-1, -1, -1, 250, -1}, {4, 0, 0, 3, 4}, kRefused, kPass},
    {"arm_fadvise64_64", {-1, -1, 270, -1, -1}, {4, POSIX_FADV_WILLNEED}, kPass, kPass},
    {"arm_fadvise64_64, other", {-1, -1, 270, -1, -1}, {4, POSIX_FADV_DONTNEED, 0, 3}, kRefused, kPass},

    {"write", {1, 64, 4, 4, 4}, {}, kForReports, kPass},
    {"open", {2, -1, 5, 5, 5}, {}, kRefused, kPass},
    {"openat", {257, 56, 322, 295, 288}, {}, kRefused, kPass},
    {"stat", {4, 79, 195, 195, 106}, {}, kRefused, kPass},
    {"clone", {56, 220, 120, 120, 120}, {}, kRefused, kPass},
    {"clone3", {435, 435, 435, 435, 435}, {}, kRefused, kPass},
    {"prctl", {157, 167, 172, 172, 172}, {}, kRefused, kPass},
    {"execve", {59, 221, 11, 11, 11}, {}, kDeadly, kPass},
    {"execveat", {322, 281, 387, 358, 354}, {}, kDeadly, kPass},
    {"socket", {41, 198, 281, 359, 359}, {}, kDeadly, kRefused},
    {"connect", {42, 203, 283, 362, 362}, {}, kDeadly, kRefused},
    {"socketcall", {-1, -1, -1, 102, 102}, {1}, kDeadly, kRefused},
    {"socketcall, recvmsg", {-1, -1, -1, 102, 102}, {17}, kDeadly, kRefused},
    {"io_uring_setup", {425, 425, 425, 425, 425}, {}, kRefused, kRefused},

    {"ptrace", {101, 117, 26, 26, 26}, {}, kRefused, kRefused},
    {"process_vm_writev", {311, 271, 377, 348, 341}, {}, kRefused, kRefused},
    {"kill, group", {62, 129, 37, 37, 37}, {0, SIGKILL}, kRefused, kPass},
    {"kill, other", {62, 129, 37, 37, 37}, {9, SIGKILL}, kRefused, kRefused},
    {"fcntl, owner", {72, 25, 221, 221, 55}, {3, 1ULL << 32 | F_SETOWN, 9}, kRefused, kRefused},
    {"fcntl, any owner", {72, 25, 55, 55, 55}, {3, F_SETOWN_EX, 4096}, kRefused, kRefused},
    {"fcntl, flags", {72, 25, 221, 221, 55}, {3, F_SETFL, O_NONBLOCK}, kRefused, kPass},
    {"prlimit64, own", {302, 261, 369, 340, 334}, {0}, kRefused, kPass},
    {"prlimit64, other", {302, 261, 369, 340, 334}, {9}, kRefused, kRefused},
    {"setsid", {112, 157, 66, 66, 66}, {}, kRefused, kRefused},
    {"ftruncate", {77, 46, 194, 194, 93}, {}, kRefused, kRefused},
    {"fchmod", {91, 52, 94, 94, 94}, {}, kRefused, kRefused},
    {"ioctl", {16, 29, 54, 54, 54}, {}, kRefused, kRefused},
    {"fchown", {93, 55, 207, 207, 207}, {}, kRefused, kRefused},
    {"utimensat", {280, 88, 412, 412, 315}, {}, kRefused, kRefused},
    {"utimensat, 32 bits", {-1, -1, 348, 320, -1}, {}, kRefused, kRefused},
};

/// What the kernel sees of a call: 32-bit words, the halves of an argument in the machine's order.
std::array<uint32_t, 16> Seen(uint32_t architecture, int number, const std::array<uint64_t, 6>& arguments) {
    std::array<uint32_t, 16> words{static_cast<uint32_t>(number), architecture};
    const size_t low = (architecture & __AUDIT_ARCH_LE) != 0 ? 0 : 1;
    for (size_t i = 0; i < arguments.size(); ++i) {
        words[4 + 2 * i + low] = static_cast<uint32_t>(arguments[i]);
        words[5 + 2 * i - low] = static_cast<uint32_t>(arguments[i] >> 32U);
    }
    return words;
}

/// Carries out `filter`, which is in the order of bytes of `architecture`.
uint32_t AnswerOf(const ProbeFilter& filter, uint32_t architecture, const std::array<uint32_t, 16>& seen) {
    const bool is_little = (architecture & __AUDIT_ARCH_LE) != 0;
    const bool is_foreign = is_little != (std::endian::native == std::endian::little);
    uint32_t value = 0;
    for (size_t at = 0; at < filter.length; ++at) {
        const sock_filter& next = filter.instructions[at];
        const uint32_t k = is_foreign ? __builtin_bswap32(next.k) : next.k;
        const auto jump = [&](bool holds) { at += holds ? next.jt : next.jf; };
        switch (is_foreign ? __builtin_bswap16(next.code) : next.code) {
            case BPF_LD | BPF_W | BPF_ABS:
                value = seen.at(k / 4);
                break;
            case BPF_ALU | BPF_AND | BPF_K:
                value &= k;
                break;
            case BPF_JMP | BPF_JA:
                at += k;
                break;
            case BPF_JMP | BPF_JEQ | BPF_K:
                jump(value == k);
                break;
            case BPF_JMP | BPF_JGT | BPF_K:
                jump(value > k);
                break;
            case BPF_JMP | BPF_JGE | BPF_K:
                jump(value >= k);
                break;
            case BPF_RET | BPF_K:
                return k;
            default:
                return kUnknownInstruction;
        }
    }
    return kUnknownInstruction;
}

TEST(Guard, FiltersTheSameCallsOnEveryMachine) {
    for (int i = 0; i < kCount; ++i) {
        const uint32_t machine = kArchitectures[i];
        ProbeFilter probe, program;
        ASSERT_TRUE(ProbeFilterBuild(&probe, machine) && ProgramFilterBuild(&program, machine)) << i;
        for (const Call& call : kCalls) {
            if (call.numbers[i] < 0) continue;
            const auto seen = Seen(machine, call.numbers[i], call.arguments);
            EXPECT_EQ(AnswerOf(probe, machine, seen), call.probe) << call.name << " of machine " << i;
            EXPECT_EQ(AnswerOf(program, machine, seen), call.program) << call.name << " of machine " << i;
        }
        // Calls of another machine's numbers, which some kernels offer beside their own.
        for (const uint32_t other : kArchitectures)
            if (other != machine) {
                EXPECT_EQ(AnswerOf(probe, machine, Seen(other, 3, {})), kDeadly) << i;
                EXPECT_EQ(AnswerOf(program, machine, Seen(other, 3, {})), kDeadly) << i;
            }
        if (machine == AUDIT_ARCH_X86_64) {
            EXPECT_EQ(AnswerOf(probe, machine, Seen(machine, 0x40000000, {})), kDeadly);
        }
    }
}

TEST(Guard, RefusesToProgramsWhatIsNewerThanTheNamesOfTheLibrary) {
    ProbeFilter own;
    ASSERT_TRUE(ProgramFilterBuild(&own));
    for (const int number : {452, 463, 466, 469})
        EXPECT_EQ(std::ranges::count_if(kArchitectures,
                                        [&](uint32_t machine) {
                                            return AnswerOf(own, machine, Seen(machine, number, {})) ==
                                                   kRefused;
                                        }),
                  1)
            << number;
}

}  // namespace koli::test
