#include "video/probe_filter.h"

#include <seccomp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iterator>
#include <memory>

#include "video/sanitized_build.h"

namespace koli {
namespace {

using Filter = std::unique_ptr<void, decltype(&seccomp_release)>;

// Names that this machine's architecture does not have are skipped by libseccomp.
constexpr int kAllowed[] = {
    // the end, and signals on the way to it
    SCMP_SYS(exit), SCMP_SYS(exit_group), SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn), SCMP_SYS(sigreturn), SCMP_SYS(restart_syscall),
    // reading of what is open; nothing is opened, nor asked for by a path
    SCMP_SYS(read), SCMP_SYS(lseek), SCMP_SYS(_llseek), SCMP_SYS(close),
    // memory; mapping is below
    SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap),
    // the C library's own needs
    SCMP_SYS(futex), SCMP_SYS(futex_time64), SCMP_SYS(getrandom), SCMP_SYS(sched_getaffinity),
    SCMP_SYS(sched_yield), SCMP_SYS(getpid), SCMP_SYS(gettid), SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_gettime64), SCMP_SYS(gettimeofday), SCMP_SYS(time)};

// What a filter sees of the calls that map memory are their registers.  Of some machines' calls that is the
// address of the arguments, so that those stay refused; the allocator is content with mmap2, or with brk
// alone.
#if defined(__s390__) || defined(__m68k__)
constexpr std::array<int, 0> kMapping{};
#elif defined(__i386__)
constexpr std::array kMapping = {SCMP_SYS(mmap2)};
#else
constexpr std::array kMapping = {SCMP_SYS(mmap), SCMP_SYS(mmap2)};
#endif

// Nothing harmless tries these.
constexpr int kDeadly[] = {SCMP_SYS(socket), SCMP_SYS(socketcall), SCMP_SYS(socketpair), SCMP_SYS(connect),
                           SCMP_SYS(bind),   SCMP_SYS(execve),     SCMP_SYS(execveat)};

// A sanitizer's report is worth more than the last bit of tightness.
constexpr int kForSanitizers[] = {SCMP_SYS(write), SCMP_SYS(sigaltstack), SCMP_SYS(readlink),
                                  SCMP_SYS(madvise)};

template <size_t N>
bool AddAll(scmp_filter_ctx filter, uint32_t action, const int (&calls)[N]) {
    for (const int call : calls)
        if (seccomp_rule_add(filter, action, call, 0) != 0) return false;
    return true;
}

/// Allows `call` when none of `forbidden` is set in its argument number `argument`.
bool AddWithoutBits(scmp_filter_ctx filter, int call, unsigned argument, scmp_datum_t forbidden) {
    const scmp_arg_cmp clear{argument, SCMP_CMP_MASKED_EQ, forbidden, 0};
    return seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, 1, &clear) == 0;
}

bool AddValue(scmp_filter_ctx filter, int call, unsigned argument, scmp_datum_t value) {
    const scmp_arg_cmp equal{argument, SCMP_CMP_EQ, value, 0};
    return seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, 1, &equal) == 0;
}

/// Memory that holds no code and is counted: shared memory is in neither limit (address space, resident
/// size), locked pages and huge ones are taken from the machine.
bool AddMemory(scmp_filter_ctx filter) {
    constexpr scmp_arg_cmp kPlain[] = {{2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0},
                                       {3, SCMP_CMP_MASKED_EQ, MAP_SHARED | MAP_LOCKED | MAP_HUGETLB, 0}};
    for (const int call : kMapping)
        if (seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, std::size(kPlain), kPlain) != 0)
            return false;
    return AddWithoutBits(filter, SCMP_SYS(mprotect), 2, PROT_EXEC) &&
           // given back by the allocator; other advice takes pages from the machine (MADV_HWPOISON)
           AddValue(filter, SCMP_SYS(madvise), 2, MADV_DONTNEED);
}

bool AddRules(scmp_filter_ctx filter) {
    return AddAll(filter, SCMP_ACT_ALLOW, kAllowed) && AddAll(filter, SCMP_ACT_KILL_PROCESS, kDeadly) &&
           AddMemory(filter) && (!kSanitizedBuild || AddAll(filter, SCMP_ACT_ALLOW, kForSanitizers));
}

/// The library gives its program out through a descriptor only.
bool Export(scmp_filter_ctx filter, ProbeFilter* out) {
    const int file = memfd_create("probe-filter", MFD_CLOEXEC);
    if (file < 0) return false;
    ssize_t bytes = -1;
    if (seccomp_export_bpf(filter, file) == 0)
        bytes = pread(file, out->instructions.data(), sizeof out->instructions, 0);
    close(file);
    if (bytes <= 0 || bytes == sizeof out->instructions) return false;  // a full array may be cut
    out->length = static_cast<uint16_t>(static_cast<size_t>(bytes) / sizeof(sock_filter));
    return true;
}

}  // namespace

bool ProbeFilterBuild(ProbeFilter* filter) {
    filter->length = 0;
    const Filter rules(seccomp_init(SCMP_ACT_ERRNO(EPERM)), seccomp_release);
    if (rules == nullptr) return false;
    seccomp_attr_set(rules.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2);  // a binary tree; older libraries lack it
    return AddRules(rules.get()) && Export(rules.get(), filter);
}

}  // namespace koli
