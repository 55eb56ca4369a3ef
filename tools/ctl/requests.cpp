#include "tools/ctl/requests.h"

#include <algorithm>

#include "index/record/share_path.h"
#include "platform/host/tables.h"
#include "platform/kolisdk.h"
#include "tools/ctl/path_reasons.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"
#include "tools/ctl/sync_plan.h"

namespace koli::ctl {
namespace {

bool IsFolder(const std::string& path) {
    return IsDirExist(path.c_str()) != 0;
}

bool IsFile(const std::string& path) {
    return IsFileExist(path.c_str(), nullptr) != 0;
}

/// The path as the daemon knows it; complains and gives "" when a request cannot carry it.
std::string Checked(const std::string& given) {
    std::string path = given.empty() ? "" : DaemonPath(given);
    const char* refusal = PathRefusal(path);
    if (refusal == nullptr) return path;
    Complain("%s: %s", given.empty() ? "(empty)" : given.c_str(), refusal);
    return "";
}

int Refuse(const std::string& given, const char* reason) {
    Complain("%s: %s", given.c_str(), reason);
    return kExitUsage;
}

void AddLine(const std::string& line, Submission* submission) {
    submission->lines += line;
    ++submission->requests;
}

/// A folder and a file that are gone look alike; what the databases say decides.  Of what they do not know,
/// or not yet, because a batch is at work, the request for a folder removes either.
char RemoveCode(const StoreReader& store, bool is_readable, const std::string& path) {
    const bool is_file =
        is_readable && !store.IsRecordedFolder(path) && !store.HasRowsBelow(path) && store.HasRowsAt(path);
    return is_file ? 'd' : 'D';
}

}  // namespace

int Add(const Context& context, const std::vector<std::string>& paths, const WaitOptions& options) {
    Submission submission;
    bool is_all = true;
    for (const std::string& given : paths) {
        std::string path = Checked(given);
        if (path.empty()) return kExitUsage;
        if (const Reasons reasons = DiskReasons(path); !reasons.empty())
            return Refuse(given, reasons.front().text.c_str());
        const bool is_folder = IsFolder(path);
        if (const Reasons reasons = RuleReasons(path, is_folder); !reasons.empty()) {
            Refuse(given, reasons.front().text.c_str());
            is_all = false;
            continue;
        }
        AddLine(RequestLine(is_folder ? 'A' : 'a', path), &submission);
        submission.present.push_back(std::move(path));
    }
    if (submission.requests == 0) return kExitUsage;
    submission.present = WithoutNested(std::move(submission.present));
    const int code = Submit(context, submission, options);
    return code == kExitDone && !is_all ? static_cast<int>(kExitDifferences) : code;
}

int Remove(const Context& context, const std::vector<std::string>& paths, const WaitOptions& options) {
    Submission submission;
    for (const std::string& given : paths) {
        std::string path = Checked(given);
        if (path.empty()) return kExitUsage;
        if (IsFolder(path) || IsFile(path))
            return Refuse(given, "it still exists; the daemon removes only what is gone");
        submission.absent.push_back(std::move(path));
    }
    StoreReader store;
    const bool is_readable = store.Open(context.places);
    for (const std::string& path : submission.absent)
        AddLine(RequestLine(RemoveCode(store, is_readable, path), path), &submission);
    return Submit(context, submission, options);
}

int Rename(const Context& context, const std::string& old_path, const std::string& new_path,
           const WaitOptions& options) {
    Submission submission;
    const std::string from = Checked(old_path), to = from.empty() ? "" : Checked(new_path);
    if (to.empty()) return kExitUsage;
    if (const char* refusal = RenameRefusal(to, from); refusal != nullptr) {
        const bool is_old = from.find(':') != std::string::npos && to.find(':') == std::string::npos;
        return Refuse(is_old ? old_path : new_path, refusal);
    }
    if (!IsFolder(to) && !IsFile(to)) return Refuse(new_path, "there is no such file or folder");
    if (IsFolder(from) || IsFile(from)) return Refuse(old_path, "it still exists: nothing was renamed");
    AddLine(RenameLine(to, from), &submission);
    submission.present.push_back(to);
    submission.absent.push_back(from);
    return Submit(context, submission, options);
}

int Rebuild(const Context& context, const std::string& library, const WaitOptions& options) {
    Submission submission;
    AddLine(RequestLine('R', library), &submission);
    submission.present = ShareFolders(library);
    submission.photo_library = library == "photo";
    submission.media_store = !submission.photo_library;
    return Submit(context, submission, options);
}

int Resync(const Context& context, const WaitOptions& options) {
    Submission submission;
    AddLine(RequestLine('U', "photo"), &submission);
    submission.present = ShareFolders("photo");
    submission.media_store = false;
    return Submit(context, submission, options);
}

int Truncate(const Context& context, const std::string& table, bool is_sure, const WaitOptions& options) {
    const auto is_table = [&table](const char* name) { return table == name; };
    if (std::none_of(std::begin(host::kMediaTables), std::end(host::kMediaTables), is_table) &&
        std::none_of(std::begin(host::kPhotoTables), std::end(host::kPhotoTables), is_table))
        return Refuse(table, "there is no such table");
    if (!is_sure) return Refuse(table, "every row of this table will be removed; say --yes to do it");
    Submission submission;
    AddLine(RequestLine('T', table), &submission);
    return Submit(context, submission, options);
}

}  // namespace koli::ctl
