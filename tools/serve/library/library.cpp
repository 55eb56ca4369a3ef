#include "tools/serve/library/library.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>

#include "tools/serve/library/library_impl.h"
#include "tools/serve/library/snapshot_read.h"

namespace koli::serve {
namespace {

constexpr int kLookSeconds = 1;    // between two looks whether something has changed
constexpr int kPauseSeconds = 10;  // between two readings of everything, at least
constexpr int kPauseTimes = 5;     // what a reading took
constexpr int kNice = 10;

/// Seconds: on a slow machine, or beside a daemon that works, reading takes a small part of the time, too.
int PauseAfter(std::chrono::steady_clock::duration took) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(took * kPauseTimes);
    return std::max(kPauseSeconds, static_cast<int>(seconds.count()));
}

}  // namespace

// ---- The snapshot

void Library::Impl::Start() {
    thread_ = std::thread([this] { Run(); });
}

void Library::Impl::Stop() {
    {
        const std::lock_guard lock(mutex_);
        is_ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

std::shared_ptr<const Snapshot> Library::Impl::Now() const {
    const std::lock_guard lock(mutex_);
    return snapshot_;
}

std::string Library::Impl::Error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

uint64_t Library::Impl::Version() const {
    const std::lock_guard lock(mutex_);
    return version_;
}

bool Library::Impl::IsWanted() const {
    const std::lock_guard lock(mutex_);
    return !is_ending_;
}

bool Library::Impl::WaitUntilRead(int seconds) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(seconds), [this] { return is_tried_; });
}

/// False when the thread is to end.
bool Library::Impl::Wait(int seconds) const {
    std::unique_lock lock(mutex_);
    return !changed_.wait_for(lock, std::chrono::seconds(seconds), [this] { return is_ending_; });
}

void Library::Impl::Fail(const std::string& error) {
    {
        const std::lock_guard lock(mutex_);
        error_ = error;
        is_tried_ = true;
    }
    changed_.notify_all();
}

/// Nobody stays connected between two readings.  False when the databases cannot be opened; `mark` is theirs.
bool Library::Impl::ReadOnce(std::string* mark) {
    ctl::StoreReader store;
    if (!store.Open(places_)) return Fail(store.error()), false;
    store.SaveMemory();
    *mark = store.ChangeMark();
    Read(store);
    return true;
}

/// Whether it is as it was read; what cannot be opened at all is told at once, and not at the next reading.
bool Library::Impl::IsInStep(const std::string& mark, bool is_pause) const {
    ctl::StoreReader store;
    return store.Open(places_) && (is_pause || (Error().empty() && store.ChangeMark() == mark));
}

/// What is not whole takes the place of nothing but an empty one.
void Library::Impl::Read(const ctl::StoreReader& store) {
    std::shared_ptr<const Snapshot> snapshot = SnapshotRead(store, *Now(), [this] { return IsWanted(); });
    if (snapshot == nullptr) return;
    {
        const std::lock_guard lock(mutex_);
        error_ = snapshot->error;
        if (error_.empty() || version_ == 0) {
            snapshot_.swap(snapshot);
            ++version_;
        }
        is_tried_ = true;
    }
    changed_.notify_all();
}

void Library::Impl::Run() {
    pthread_setname_np(pthread_self(), "serve-library");
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
    do {
        try {
            const auto begin = std::chrono::steady_clock::now();
            std::string mark;
            if (!ReadOnce(&mark)) continue;
            const auto took = std::chrono::steady_clock::now() - begin;
            malloc_trim(0);  // the snapshot before this one
            int pause = PauseAfter(took) - kLookSeconds;
            while (Wait(kLookSeconds) && IsInStep(mark, pause > 0))
                pause -= kLookSeconds;
        } catch (const std::exception& error) {
            Fail(error.what());
        }
    } while (Wait(kLookSeconds));
}

// ---- Library

Library::Library(const ctl::Places& places) : impl_(std::make_unique<Impl>(places)) {}
Library::~Library() = default;

void Library::Start() {
    impl_->Start();
}

void Library::Stop() {
    impl_->Stop();
}

bool Library::WaitUntilRead(int seconds) const {
    return impl_->WaitUntilRead(seconds);
}

std::string Library::Error() const {
    return impl_->Error();
}

uint64_t Library::Version() const {
    return impl_->Version();
}

Totals Library::Counts() const {
    const auto snapshot = impl_->Now();
    const auto files = [&](FileKind kind) { return snapshot->Of(kind).files.size(); };
    return {.songs = files(FileKind::kSong),
            .films = snapshot->films_by_title.size(),
            .pictures = files(FileKind::kPicture),
            .playlists = files(FileKind::kPlaylist),
            .albums = snapshot->records.size(),
            .artists = snapshot->artists.size(),
            .genres = snapshot->genres.size(),
            .photo_albums = snapshot->photo_albums.size(),
            .problems = snapshot->problems};
}

}  // namespace koli::serve
