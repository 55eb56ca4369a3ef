#include "guard/probe_filter.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/seccomp.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <span>

#include "guard/sanitized_build.h"

namespace koli {
namespace {

constexpr uint32_t kOwnPid =
    0x4B6F6C69;  // stands for the child's pid, which the filter is older than; above any pid

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

// Calls that map memory.  A filter sees their registers; of some machines' calls that is the address of the
// arguments, so that those stay refused: the allocator is content with mmap2, or with brk alone.
constexpr int kMapping[] = {SCMP_SYS(mmap2), SCMP_SYS(mmap)};

/// The calls of one architecture that are allowed by their arguments.
struct JudgedCalls {
    std::span<const int> mapping;
    int read_ahead;   // advice about an open file's bytes
    unsigned advice;  // its argument of `read_ahead`; an offset takes two on machines of 32 bits
};

JudgedCalls JudgedCallsOf(uint32_t architecture) {
    const std::span mapping(kMapping);
    switch (architecture) {
        case AUDIT_ARCH_I386:
            return {mapping.first(1), SCMP_SYS(fadvise64_64), 5};
        case AUDIT_ARCH_ARM:
            return {mapping, SCMP_SYS(arm_fadvise64_64), 1};
        case AUDIT_ARCH_M68K:
            return {mapping.first(1), SCMP_SYS(fadvise64_64), 5};
        case AUDIT_ARCH_S390:
        case AUDIT_ARCH_S390X:
            return {{}, SCMP_SYS(fadvise64), 3};
        default:
            return {mapping, SCMP_SYS(fadvise64), 3};
    }
}

// Nothing harmless tries these.  They end the thread, which is all there is of a child: old kernels cannot
// end a process.
constexpr int kDeadly[] = {SCMP_SYS(socket), SCMP_SYS(socketcall), SCMP_SYS(socketpair), SCMP_SYS(connect),
                           SCMP_SYS(bind),   SCMP_SYS(execve),     SCMP_SYS(execveat)};

// A program is root like the daemon, though without its capabilities: root's files and processes are its own,
// and the oldest Landlock guards no file's length, none guards modes, owners and times.
constexpr int kRefusedToPrograms[] = {
    // the network, and what passes by this filter
    SCMP_SYS(socket), SCMP_SYS(socketcall), SCMP_SYS(socketpair), SCMP_SYS(connect), SCMP_SYS(bind),
    SCMP_SYS(io_uring_setup),
    // what is there of files
    SCMP_SYS(truncate), SCMP_SYS(truncate64), SCMP_SYS(ftruncate), SCMP_SYS(ftruncate64), SCMP_SYS(fallocate),
    SCMP_SYS(chmod), SCMP_SYS(fchmod), SCMP_SYS(fchmodat), SCMP_SYS(chown), SCMP_SYS(chown32),
    SCMP_SYS(lchown), SCMP_SYS(lchown32), SCMP_SYS(fchown), SCMP_SYS(fchown32), SCMP_SYS(fchownat),
    SCMP_SYS(setxattr), SCMP_SYS(lsetxattr), SCMP_SYS(fsetxattr), SCMP_SYS(removexattr),
    SCMP_SYS(lremovexattr), SCMP_SYS(fremovexattr), SCMP_SYS(utime), SCMP_SYS(utimes), SCMP_SYS(futimesat),
    SCMP_SYS(utimensat), SCMP_SYS(utimensat_time64), SCMP_SYS(ioctl),
    // memory, semaphores and queues of any process of the same user
    SCMP_SYS(ipc), SCMP_SYS(shmat), SCMP_SYS(shmctl), SCMP_SYS(semctl), SCMP_SYS(semop), SCMP_SYS(semtimedop),
    SCMP_SYS(semtimedop_time64), SCMP_SYS(msgctl), SCMP_SYS(msgsnd), SCMP_SYS(msgrcv),
    // other processes; kill, prlimit64 and fcntl are below
    SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev), SCMP_SYS(process_madvise),
    SCMP_SYS(process_mrelease), SCMP_SYS(pidfd_getfd), SCMP_SYS(pidfd_send_signal), SCMP_SYS(tkill),
    SCMP_SYS(tgkill), SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo), SCMP_SYS(setpriority),
    SCMP_SYS(ioprio_set), SCMP_SYS(sched_setaffinity), SCMP_SYS(sched_setattr), SCMP_SYS(sched_setparam),
    SCMP_SYS(sched_setscheduler), SCMP_SYS(migrate_pages), SCMP_SYS(move_pages), SCMP_SYS(setsid),
    SCMP_SYS(setpgid)};

// Newer than the library's names: fchmodat2, setxattrat, removexattrat and file_setattr, which have the same
// number on every architecture that numbers new calls like the others.
#if defined(__alpha__) || defined(__mips__)
constexpr std::array<int, 0> kNewToPrograms{};
#else
constexpr std::array kNewToPrograms = {452, 463, 466, 469};
#endif

// To these, 0 is the caller and its group, or the caller.
constexpr int kForOneself[] = {SCMP_SYS(kill), SCMP_SYS(prlimit64)};

// A sanitizer's report is worth more than the last bit of tightness.
constexpr int kForSanitizers[] = {SCMP_SYS(write), SCMP_SYS(sigaltstack), SCMP_SYS(readlink),
                                  SCMP_SYS(madvise)};

/// The library's results are error numbers.
bool Succeeded(int result) {
    if (result < 0) errno = -result;
    return result == 0;
}

bool AddAll(scmp_filter_ctx filter, uint32_t action, std::span<const int> calls) {
    for (const int call : calls)
        if (!Succeeded(seccomp_rule_add(filter, action, call, 0))) return false;
    return true;
}

/// Allows `call` when all `conditions` hold.
template <size_t N>
bool AddWhere(scmp_filter_ctx filter, int call, const scmp_arg_cmp (&conditions)[N]) {
    return Succeeded(seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, N, conditions));
}

/// Memory that holds no code and is counted: shared memory is in neither limit (address space, resident
/// size), locked pages and huge ones are taken from the machine.
bool AddMemory(scmp_filter_ctx filter, std::span<const int> mapping) {
    constexpr scmp_arg_cmp kNoCode = {2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0};
    constexpr scmp_arg_cmp kPlain = {3, SCMP_CMP_MASKED_EQ, MAP_SHARED | MAP_LOCKED | MAP_HUGETLB, 0};
    for (const int call : mapping)
        if (!AddWhere(filter, call, {kNoCode, kPlain})) return false;
    return AddWhere(filter, SCMP_SYS(mprotect), {kNoCode}) &&
           // given back by the allocator; other advice takes pages from the machine (MADV_HWPOISON)
           AddWhere(filter, SCMP_SYS(madvise), {{2, SCMP_CMP_EQ, MADV_DONTNEED, 0}});
}

/// What will be read is asked for ahead.
bool AddReadAhead(scmp_filter_ctx filter, const JudgedCalls& calls) {
    return AddWhere(filter, calls.read_ahead, {{calls.advice, SCMP_CMP_EQ, POSIX_FADV_WILLNEED, 0}});
}

/// abort() ends the process itself, and by its own signal.
bool AddAbort(scmp_filter_ctx filter) {
    return AddWhere(filter, SCMP_SYS(tgkill), {{0, SCMP_CMP_EQ, kOwnPid, 0}, {2, SCMP_CMP_EQ, SIGABRT, 0}});
}

bool AddRules(scmp_filter_ctx filter, uint32_t architecture) {
    const JudgedCalls calls = JudgedCallsOf(architecture);
    return AddAll(filter, SCMP_ACT_ALLOW, kAllowed) && AddAll(filter, SCMP_ACT_KILL_THREAD, kDeadly) &&
           AddMemory(filter, calls.mapping) && AddReadAhead(filter, calls) && AddAbort(filter) &&
           (!kSanitizedBuild || AddAll(filter, SCMP_ACT_ALLOW, kForSanitizers));
}

/// Who is named as a pipe's owner gets a signal, any one, when the pipe can be read.
bool RefuseOwners(scmp_filter_ctx filter) {
    for (const int call : {SCMP_SYS(fcntl), SCMP_SYS(fcntl64)})
        for (const unsigned request : {F_SETOWN, F_SETOWN_EX}) {
            const scmp_arg_cmp is_it[] = {
                {1, SCMP_CMP_MASKED_EQ, ~0U, request}};  // all that the kernel reads
            if (!Succeeded(seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(EPERM), call, 1, is_it)))
                return false;
        }
    return true;
}

bool AddProgramRules(scmp_filter_ctx filter, uint32_t architecture) {
    constexpr scmp_arg_cmp kOther[] = {{0, SCMP_CMP_NE, 0, 0}};
    for (const int call : kForOneself)
        if (!Succeeded(seccomp_rule_add_array(filter, SCMP_ACT_ERRNO(EPERM), call, 1, kOther))) return false;
    // The library takes numbers without a name for its own architecture only.
    return AddAll(filter, SCMP_ACT_ERRNO(EPERM), kRefusedToPrograms) && RefuseOwners(filter) &&
           (architecture != seccomp_arch_native() || AddAll(filter, SCMP_ACT_ERRNO(EPERM), kNewToPrograms));
}

/// The library writes its program to a descriptor; a pipe, which holds 65536 bytes, needs no file.
ssize_t Export(scmp_filter_ctx filter, std::span<std::byte> program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
    ssize_t bytes = -1;
    if (Succeeded(seccomp_export_bpf(filter, ends[1]))) bytes = read(ends[0], program.data(), program.size());
    const int reason = errno;
    close(ends[0]);
    close(ends[1]);
    errno = reason;
    return bytes;
}

/// Finds the instruction that compares with kOwnPid.  False when there are several.
bool FindOwnPid(ProbeFilter* filter) {
    filter->own_pid = ProbeFilter::kNone;
    int found = 0;
    for (uint16_t i = 0; i < filter->length; ++i)
        if (filter->instructions[i].k == kOwnPid) {
            filter->own_pid = i;
            ++found;
        }
    return found <= 1;
}

/// Has `filter` be one of `architecture` instead of the machine's own.
bool SetArchitecture(scmp_filter_ctx filter, uint32_t architecture) {
    return architecture == seccomp_arch_native() ||
           (Succeeded(seccomp_arch_remove(filter, seccomp_arch_native())) &&
            Succeeded(seccomp_arch_add(filter, architecture)));
}

/// Builds the filter that `add_rules` makes; what it does not name is answered with `otherwise`.
bool Build(ProbeFilter* filter, uint32_t architecture, uint32_t otherwise,
           bool (*add_rules)(scmp_filter_ctx, uint32_t)) {
    if (architecture == 0) architecture = seccomp_arch_native();
    filter->length = 0;
    const Filter rules(seccomp_init(otherwise), seccomp_release);
    if (rules == nullptr) {
        errno = ENOMEM;
        return false;
    }
    seccomp_attr_set(rules.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2);  // a binary tree; older libraries lack it
    if (!SetArchitecture(rules.get(), architecture) || !add_rules(rules.get(), architecture)) return false;

    ProbeFilter built;
    const ssize_t bytes = Export(rules.get(), std::as_writable_bytes(std::span(built.instructions)));
    if (bytes < 0) return false;
    built.length = static_cast<uint16_t>(static_cast<size_t>(bytes) / sizeof(sock_filter));
    if (built.length == ProbeFilter::kMaxInstructions || !FindOwnPid(&built)) {  // a full array may be cut
        errno = EOVERFLOW;
        return false;
    }
    *filter = built;
    return true;
}

}  // namespace

bool ProbeFilterBuild(ProbeFilter* filter, uint32_t architecture) {
    return Build(filter, architecture, SCMP_ACT_ERRNO(EPERM), AddRules);
}

bool ProgramFilterBuild(ProbeFilter* filter, uint32_t architecture) {
    return Build(filter, architecture, SCMP_ACT_ALLOW, AddProgramRules);
}

bool ProbeFilterEnter(ProbeFilter* filter, unsigned flags) {
    if (filter->own_pid != ProbeFilter::kNone)
        filter->instructions[filter->own_pid].k = static_cast<uint32_t>(getpid());
    const sock_fprog program{filter->length, filter->instructions.data()};
    return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program) == 0;
}

}  // namespace koli
