#include "tools/serve/picture/pictures.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "tools/serve/picture/picture_key.h"

namespace koli::serve {
namespace {

constexpr const char kModule[] = "pictures";

constexpr unsigned kMaxAtOnce = 4;    // pictures that are made at the same time
constexpr unsigned kOldestEvery = 4;  // turns
constexpr size_t kMaxWho = 64;        // who wait for the same picture
constexpr int kLookMs = 1000;         // between two looks at the clock, while something waits

}  // namespace

bool Pictures::Start(const PictureSettings& settings, std::string* error) {
    settings_ = settings;
    error->clear();
    const auto processors = static_cast<unsigned>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L));
    slots_ = std::make_unique<PictureSlots>(std::min(processors, kMaxAtOnce));
    at_work_.resize(slots_->count());
    wake_ = UniqueFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!slots_->valid() || !wake_.valid()) {
        *error = strerror(errno);
        return false;
    }
    if (!StartMaker(error)) return false;
    if (std::string why; !cache_.Open(settings.folder, settings.bound, &why))
        *error = "cannot keep small pictures in " + settings.folder + ": " + why;
    is_running_ = true;
    thread_ = std::thread([this] { Run(); });
    return true;
}

bool Pictures::StartMaker(std::string* error) {
    maker_begin_ = Clock::now();
    return maker_.Start(settings_.program, *slots_, error);
}

/// One that has ended is started again, but not all the time.
bool Pictures::HasMaker() {
    if (maker_.is_running()) return true;
    std::string error;
    if (Clock::now() - maker_begin_ < settings_.pause) return false;
    if (StartMaker(&error)) return true;
    KOLI_LOG("No small pictures can be made: %s.", error.c_str());
    return false;
}

void Pictures::Stop() {
    std::vector<JobPointer> left;
    {
        const std::lock_guard lock(mutex_);
        is_running_ = false;
    }
    Wake();
    if (thread_.joinable()) thread_.join();
    {
        const std::lock_guard lock(mutex_);  // of those who still ask
        for (const auto& [key, job] : jobs_)
            left.push_back(job);
    }
    for (const JobPointer& job : left)
        Finish(job, PictureResult::kNotNow, {});
    cache_.Close();
    maker_.End();
}

void Pictures::Ask(UniqueFd file, std::string_view name, PictureSide side, PictureDone done) {
    const std::optional<std::string> file_key = PictureKey(file.get(), name);
    PictureResult refusal = PictureResult::kNotNow;
    JobPointer pushed_out;
    if (file_key) {
        const std::string key = std::to_string(static_cast<int>(side)) + ' ' + *file_key;
        const std::lock_guard lock(mutex_);
        const auto same = jobs_.find(key);
        if (failed_.Has(*file_key)) {
            refusal = PictureResult::kNoPicture;
        } else if (same != jobs_.end() && same->second->who.size() < kMaxWho) {
            same->second->who.push_back(std::exchange(done, nullptr));
        } else if (is_running_ && same == jobs_.end()) {
            auto job = std::make_shared<Job>(Job{key, *file_key, std::move(file), side, Clock::now(), {}});
            job->who.push_back(std::exchange(done, nullptr));
            jobs_.emplace(key, job);
            asked_.push_back(std::move(job));
            if (asked_.size() + waiting_.size() > settings_.waiting) {
                std::deque<JobPointer>& oldest = waiting_.empty() ? asked_ : waiting_;
                pushed_out = std::move(oldest.front());
                oldest.pop_front();
            }
        }
    }
    if (pushed_out != nullptr) Finish(pushed_out, PictureResult::kNotNow, {});
    if (done != nullptr) return done(refusal, {});
    Wake();
}

void Pictures::Wake() const {
    eventfd_write(wake_.get(), 1);
}

void Pictures::Run() {
    pthread_setname_np(pthread_self(), "serve-pictures");
    for (;;) {
        Wait();
        {
            const std::lock_guard lock(mutex_);
            if (!is_running_) return;
        }
        LookUp();
        while (const JobPointer job = Overdue())
            Finish(job, PictureResult::kNotNow, {});
        Dispatch();
    }
}

/// Until somebody asks, the maker answers, or something may have waited too long.
void Pictures::Wait() {
    bool is_waiting = false;
    {
        const std::lock_guard lock(mutex_);
        is_waiting = !jobs_.empty();
    }
    pollfd sources[] = {{wake_.get(), POLLIN, 0}, {maker_.socket(), POLLIN, 0}};
    if (poll(sources, 2, is_waiting ? kLookMs : -1) <= 0) return;
    eventfd_t count = 0;
    if (sources[0].revents != 0) eventfd_read(wake_.get(), &count);
    if (sources[1].revents != 0) TakeAnswer();
}

void Pictures::LookUp() {
    for (;;) {
        JobPointer job;
        {
            const std::lock_guard lock(mutex_);
            if (asked_.empty()) return;
            job = std::move(asked_.front());
            asked_.pop_front();
        }
        if (std::optional<std::string> jpeg = cache_.Find(job->key)) {
            Finish(job, PictureResult::kMade, std::move(*jpeg));
        } else if (!HasMaker()) {
            Finish(job, PictureResult::kNotNow, {});
        } else {
            const std::lock_guard lock(mutex_);
            waiting_.push_back(std::move(job));
        }
    }
}

/// One that waits, or is at work on a disk that does not answer; its slot stays taken.
Pictures::JobPointer Pictures::Overdue() {
    const std::lock_guard lock(mutex_);
    const auto is_overdue = [this](const JobPointer& job) {
        return job != nullptr && !job->who.empty() && Clock::now() - job->asked > settings_.patience;
    };
    if (!waiting_.empty() && is_overdue(waiting_.front())) {
        JobPointer job = std::move(waiting_.front());
        waiting_.pop_front();
        return job;
    }
    const auto held = std::find_if(at_work_.begin(), at_work_.end(), is_overdue);
    return held != at_work_.end() ? *held : nullptr;
}

Pictures::JobPointer Pictures::NextWaiting() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) return nullptr;
    const bool is_oldest_next = ++turn_ % kOldestEvery == 0;
    JobPointer job = std::move(is_oldest_next ? waiting_.front() : waiting_.back());
    if (is_oldest_next)
        waiting_.pop_front();
    else
        waiting_.pop_back();
    return job;
}

void Pictures::Dispatch() {
    for (uint32_t slot = 0; slot < at_work_.size() && maker_.is_running(); ++slot) {
        if (at_work_[slot] != nullptr) continue;
        JobPointer job = NextWaiting();
        if (job == nullptr) return;
        at_work_[slot] = job;
        if (!OrderSend(maker_.socket(), {slot, static_cast<int32_t>(job->side)}, job->file.get()))
            return MakerIsGone();
        job->file = {};
    }
}

void Pictures::TakeAnswer() {
    PictureAnswer answer{};
    if (!AnswerReceive(maker_.socket(), &answer)) return MakerIsGone();
    if (answer.slot >= at_work_.size() || at_work_[answer.slot] == nullptr) return;
    const JobPointer job = std::exchange(at_work_[answer.slot], nullptr);
    const PictureSlot& slot = (*slots_)[answer.slot];
    const uint32_t size = slot.size;
    if (answer.result == PictureAnswer::kMade && size > 0 && size <= PictureSlot::kBytes) {
        const std::string jpeg(reinterpret_cast<const char*>(slot.bytes), size);
        Finish(job, PictureResult::kMade, jpeg);
        return cache_.Keep(job->key, jpeg);
    }
    if (answer.result == PictureAnswer::kNotNow) {
        if (!std::exchange(has_complained_, true)) KOLI_LOG("A small picture cannot be made at the moment.");
        return Finish(job, PictureResult::kNotNow, {});
    }
    {
        const std::lock_guard lock(mutex_);
        failed_.Add(job->file_key);
    }
    Finish(job, PictureResult::kNoPicture, {});
}

void Pictures::MakerIsGone() {
    KOLI_LOG("The process that makes small pictures has ended.");
    maker_.End();
    std::vector<JobPointer> lost;
    for (JobPointer& job : at_work_)
        if (job != nullptr) lost.push_back(std::exchange(job, nullptr));
    {
        const std::lock_guard lock(mutex_);
        lost.insert(lost.end(), waiting_.begin(), waiting_.end());
        waiting_.clear();
    }
    for (const JobPointer& job : lost)
        Finish(job, PictureResult::kNotNow, {});
}

void Pictures::Finish(const JobPointer& job, PictureResult result, std::string jpeg) {
    std::vector<PictureDone> who;
    {
        const std::lock_guard lock(mutex_);
        const auto same = jobs_.find(job->key);  // another one, if this was given up before
        if (same != jobs_.end() && same->second == job) jobs_.erase(same);
        who.swap(job->who);
    }
    for (size_t i = 0; i + 1 < who.size(); ++i)
        who[i](result, jpeg);
    if (!who.empty()) who.back()(result, std::move(jpeg));
}

}  // namespace koli::serve
