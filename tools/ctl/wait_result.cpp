#include "tools/ctl/wait_result.h"

#include "platform/host/tables.h"
#include "tools/ctl/store_reader.h"
#include "tools/ctl/tree_compare.h"

namespace koli::ctl {
namespace {

void Name(const std::string& path, std::vector<std::string>* names, int64_t* count) {
    ++*count;
    if (names->size() < WaitResult::kNamesMax) names->push_back(path);
}

void LookForMissing(const StoreReader& store, const std::string& path, const Submission& submission,
                    WaitResult* result) {
    const CompareOptions options{.fold_new_folders = false,
                                 .media_store = submission.media_store,
                                 .photo_library = submission.photo_library,
                                 .allow_empty = true};
    const auto note = [result](Change change, const std::string& file) {
        if (change == Change::kNewFile || change == Change::kChangedFile)
            Name(file, &result->missing, &result->missing_count);
    };
    result->files += TreeCompare(store, path, options, note).files;
}

void LookForProblems(const StoreReader& store, const std::string& path, WaitResult* result) {
    const auto rows = store.List(host::kProblemTable, {"path"}, {.below = path});
    while (rows != nullptr && rows->Next())
        Name(std::string(rows->Field(0)), &result->unparsable, &result->unparsable_count);
}

}  // namespace

int64_t FilesFound(const Submission& submission) {
    const StoreReader nothing_stored;
    const CompareOptions options{.fold_new_folders = false,
                                 .media_store = submission.media_store,
                                 .photo_library = !submission.media_store,
                                 .allow_empty = true};
    int64_t files = 0;
    for (const std::string& path : submission.present)
        files += TreeCompare(nothing_stored, path, options, [](Change, const std::string&) {}).files;
    return files;
}

WaitResult WaitResultOf(const Context& context, const Submission& submission) {
    WaitResult result;
    StoreReader store;
    if (store.Open(context.places)) {
        for (const std::string& path : submission.present) {
            LookForMissing(store, path, submission, &result);
            if (submission.media_store) LookForProblems(store, path, &result);
        }
        for (const std::string& path : submission.absent)
            result.still_stored += store.FilesBelow(path);
    }
    result.error = store.error();
    return result;
}

}  // namespace koli::ctl
