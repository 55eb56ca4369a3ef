// What films cost: probe_bench FOLDER
//
// Milliseconds a film over all files of the folder, which are in the page cache: probed in one process
// without a guard, indexed on one processor, and on all of them.  Each figure is the median of several
// passes, in turns, with the least and the greatest; then the films by themselves, as they differ; then where
// the guard's share goes.
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/media_info.h"
#include "bench/measure.h"
#include "guard/probe_guard.h"
#include "index/directory.h"
#include "index/index.h"
#include "index/record/index_mode.h"
#include "platform/kolidb.h"
#include "video/container_probe.h"
#include "video/metamedia.h"

namespace koli::bench {
namespace {

constexpr int kPasses = 9;
constexpr int kGuardRuns = 200;

using Times = std::vector<double>;  // ms

double Milliseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double Median(Times times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void Print(const char* what, const Times& times) {
    const auto [least, greatest] = std::minmax_element(times.begin(), times.end());
    printf("  %-44s %8.3f %8.3f .. %.3f\n", what, Median(times), *least, *greatest);
}

std::vector<std::string> FilmsBelow(const char* folder) {
    std::vector<std::string> films;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.is_regular_file() && IndexIsProbed(entry.path().filename().c_str()))
            films.push_back(entry.path());
    std::sort(films.begin(), films.end());
    return films;
}

void ProbeAlone(const std::vector<std::string>& films) {
    for (const std::string& film : films) {
        MediaInfo record{};
        FileReading reading(film.c_str());
        MiscMediaInfoProbe(film.c_str(), &record, reading);
    }
}

void ProbeGuarded(const std::string& film) {
    MediaInfo record{};
    FileReading reading(film.c_str());
    MiscMediaInfoGet(film.c_str(), &record, reading);
}

/// Milliseconds a film of what runs in a process of its own: what it leaves on the heap no other one copies.
double EachInChild(size_t films, const std::function<void()>& work) {
    const Pass pass = InChild([&] {
        ContainerProbeWarmUp();
        return Measure(work);
    });
    return pass.seconds * 1e3 / static_cast<double>(films);
}

void Index(const char* folder) {
    IndexWalk(folder, kModeAdd, kWalkMediaStore);
    KOLIDBSync();
}

void StayOnOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(std::max(sched_getcpu(), 0)), &one);
    if (sched_setaffinity(0, sizeof one, &one) != 0) Fail("sched_setaffinity");
}

void CompareWalks(const char* folder, const std::vector<std::string>& films) {
    Times alone, on_one, on_all;
    for (int pass = 0; pass < kPasses; ++pass) {
        alone.push_back(EachInChild(films.size(), [&] { ProbeAlone(films); }));
        on_one.push_back(InChild([&] {
                             StayOnOneProcessor();
                             FreshStores();
                             return Measure([&] { Index(folder); });
                         }).seconds *
                         1e3 / static_cast<double>(films.size()));
        on_all.push_back(InChild([&] {
                             FreshStores();
                             return Measure([&] { Index(folder); });
                         }).seconds *
                         1e3 / static_cast<double>(films.size()));
    }
    printf("%zu films, ms each: the median of %d passes, and their range\n", films.size(), kPasses);
    Print("probed in one process, no guard, no row", alone);
    Print("indexed, one processor", on_one);
    Print("indexed, all processors", on_all);
    printf("  indexed to probed: %.2f on one processor, %.2f on all\n", Median(on_one) / Median(alone),
           Median(on_all) / Median(alone));
}

void CompareFilms(const std::vector<std::string>& films) {
    std::vector<Times> runs(films.size());
    for (int pass = 0; pass < kPasses; ++pass)
        for (size_t i = 0; i < films.size(); ++i)
            runs[i].push_back(Milliseconds([&] { ProbeGuarded(films[i]); }));
    Times medians;
    std::transform(runs.begin(), runs.end(), std::back_inserter(medians), Median);
    Print("one guarded probe: the median film, and all", medians);
}

void ForkAndWait(bool hardened) {
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) _exit(hardened ? ProbeGuardEnter(-1, parent) ? 0 : 1 : 0);
    waitpid(pid, nullptr, 0);
}

int Nothing(int, const char*, MediaInfo*, FileReading&) {
    return 0;
}

void ShowGuard() {
    MediaInfo record{};
    FileReading reading("/nothing");
    Times bare, hardened, guard;
    for (int i = 0; i < kGuardRuns; ++i) {
        bare.push_back(Milliseconds([] { ForkAndWait(false); }));
        hardened.push_back(Milliseconds([] { ForkAndWait(true); }));
        guard.push_back(Milliseconds([&] { GuardedProbeRun("/nothing", &record, reading, Nothing); }));
    }
    Print("of that: fork, exit, wait", bare);
    Print("the same with the hardening", hardened);
    Print("the same with memory, signals and watch", guard);
}

}  // namespace
}  // namespace koli::bench

int main(int count, char** arguments) {
    using namespace koli::bench;
    if (count != 2) {
        fprintf(stderr, "usage: probe_bench FOLDER\n");
        return 2;
    }
    const std::vector<std::string> films = FilmsBelow(arguments[1]);
    if (films.empty()) Fail(arguments[1]);
    koli::ProbeGuardPrepare();
    CompareWalks(arguments[1], films);
    koli::ContainerProbeWarmUp();
    CompareFilms(films);
    ShowGuard();
    return 0;
}
