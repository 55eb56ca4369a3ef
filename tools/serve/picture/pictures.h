// Small pictures of the files that the library shows.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "base/unique_fd.h"
#include "tools/serve/picture/failed_pictures.h"
#include "tools/serve/picture/maker_channel.h"
#include "tools/serve/picture/maker_process.h"
#include "tools/serve/picture/picture_cache.h"

namespace koli::serve {

/// The box that a picture must fit in, pixels.
enum class PictureSide : int32_t { k160 = 160, k320 = 320, k640 = 640, k1280 = 1280 };

enum class PictureResult {
    kMade,       // here it is, a JPEG
    kNoPicture,  // the file holds none that can be shown
    kNotNow      // too much is asked for, or something is lacking at the moment: it may be asked for again
};

/// Gets what was asked for, once.  Runs in the thread of Pictures, or in that which asks: it must neither
/// wait nor throw.
using PictureDone = std::function<void(PictureResult result, std::string jpeg)>;

struct PictureSettings {
    std::string program = MakerProgram();  // that makes them
    std::string folder;                    // of the cache
    uint64_t bound = 256U << 20;           // bytes there
    size_t waiting = 256;                  // pictures that wait for their turn; the oldest is told kNotNow
    std::chrono::seconds patience{30};     // before who asked is told kNotNow
    std::chrono::seconds pause{10};        // from one start of the program to the next
};

/// Has small pictures made by a process of its own, each in a guarded child, and keeps them.
class Pictures {
  public:
    Pictures() = default;
    ~Pictures() { Stop(); }
    Pictures(const Pictures&) = delete;
    Pictures& operator=(const Pictures&) = delete;

    /// Starts the maker, and a thread that asks it.  False, and `error` tells why, when no pictures can be
    /// made.  A cache that cannot be used is told in `error`, too: then each picture is made each time.
    bool Start(const PictureSettings& settings, std::string* error);
    /// Ends the maker and the thread; who still waits is told kNotNow, as is who asks from here on.
    void Stop();

    /// Has a small picture of what is open as `file` made, or fetched from the cache; `name` is the file's
    /// for good, such as its path.  From any thread; returns at once.  Whoever asks for one that is being
    /// made gets the same.  The newest comes first, but one in four is the oldest.
    void Ask(UniqueFd file, std::string_view name, PictureSide side, PictureDone done);

  private:
    using Clock = std::chrono::steady_clock;
    struct Job {
        std::string key;       // with its side
        std::string file_key;  // of all its sides
        UniqueFd file;
        PictureSide side;
        Clock::time_point asked;
        std::vector<PictureDone> who;
    };
    using JobPointer = std::shared_ptr<Job>;

    bool StartMaker(std::string* error);
    bool HasMaker();
    void Run();
    void Wait();
    void LookUp();
    void Dispatch();
    JobPointer NextWaiting();
    JobPointer Overdue();
    void TakeAnswer();
    void MakerIsGone();
    void Finish(const JobPointer& job, PictureResult result, std::string jpeg);
    void Wake() const;

    PictureSettings settings_;
    PictureCache cache_;
    std::unique_ptr<PictureSlots> slots_;
    std::vector<JobPointer> at_work_;  // of each slot
    MakerProcess maker_;
    Clock::time_point maker_begin_;
    UniqueFd wake_;
    std::thread thread_;
    unsigned turn_ = 0;
    bool has_complained_ = false;

    std::mutex mutex_;  // of what follows
    bool is_running_ = false;
    std::deque<JobPointer> asked_;                      // not looked up in the cache yet
    std::deque<JobPointer> waiting_;                    // not there; the newest last
    std::unordered_map<std::string, JobPointer> jobs_;  // all of them, by key
    FailedPictures failed_;
};

}  // namespace koli::serve
