// What the guard of a probe costs: probe_bench FILE...
//
// For each media file, milliseconds (the fastest tenth of many runs, free of what else the machine does) of
// the probe in this process, and of the same probe in its guarded child; before that, of the guard's own
// parts.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "base/media_info.h"
#include "video/container_probe.h"
#include "video/metamedia.h"
#include "video/probe_guard.h"

namespace {

constexpr int kRuns = 200;

double Milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

/// Processor time of this process and its ended children: what other programs do meanwhile hardly counts.
double ProcessorMilliseconds() {
    double sum = 0;
    for (const auto whose : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(whose, &usage);
        sum += Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime);
    }
    return sum;
}

struct Cost {
    double elapsed;    // ms, the fastest tenth of the runs
    double processor;  // ms, mean of the runs
};

template <typename Work>
Cost Measure(Work work) {
    std::vector<double> times;
    const double processor = ProcessorMilliseconds();
    for (int i = 0; i < kRuns; ++i) {
        const auto start = std::chrono::steady_clock::now();
        work();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::nth_element(times.begin(), times.begin() + kRuns / 10, times.end());
    return {times[kRuns / 10], (ProcessorMilliseconds() - processor) / kRuns};
}

void ForkAndWait(bool hardened) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) _exit(hardened ? koli::ProbeGuardEnter(-1, parent) ? 0 : 1 : 0);
    waitpid(pid, nullptr, 0);
}

int Nothing(int, const char*, koli::MediaInfo*, koli::FileReading&) {
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    koli::ProbeGuardPrepare();
    koli::MediaInfo record{};
    const char* const any = arguments[0];
    koli::FileReading reading(any);
    const Cost bare = Measure([] { ForkAndWait(false); });
    const Cost hardened = Measure([] { ForkAndWait(true); });
    const Cost guard = Measure([&] { koli::GuardedProbeRun(any, &record, reading, Nothing); });
    printf("%-30s %8s %8s\n", "ms", "elapsed", "processor");
    printf("%-30s %8.3f %8.3f\n", "fork, exit, wait", bare.elapsed, bare.processor);
    printf("%-30s %8.3f %8.3f\n", "+ hardening", hardened.elapsed - bare.elapsed,
           hardened.processor - bare.processor);
    printf("%-30s %8.3f %8.3f\n", "+ mapping, signals, watch", guard.elapsed - hardened.elapsed,
           guard.processor - hardened.processor);

    printf("\n%-30s %-26s  %s\n", "", "elapsed", "processor");
    printf("%-30s %8s %8s %8s  %8s %8s %8s\n", "file", "alone", "guarded", "added", "alone", "guarded",
           "added");
    // All children first: what a probe in this process leaves on the heap, each later child would copy.
    std::vector<Cost> guarded;
    for (int i = 1; i < count; ++i)
        guarded.push_back(Measure([&] { koli::MiscMediaInfoGet(arguments[i], &record, reading); }));
    for (int i = 1; i < count; ++i) {
        const Cost& child = guarded[static_cast<size_t>(i - 1)];
        const Cost alone = Measure([&] { koli::MiscMediaInfoProbe(arguments[i], &record, reading); });
        printf("%-30.30s %8.3f %8.3f %8.3f  %8.3f %8.3f %8.3f\n", basename(arguments[i]), alone.elapsed,
               child.elapsed, child.elapsed - alone.elapsed, alone.processor, child.processor,
               child.processor - alone.processor);
    }
    return 0;
}
