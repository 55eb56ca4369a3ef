#include "tools/ctl/why.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "base/media_info.h"
#include "platform/kolisdk.h"
#include "tools/ctl/media_kinds.h"
#include "tools/ctl/output.h"
#include "tools/ctl/path_reasons.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reasons.h"
#include "tools/ctl/waiting_reasons.h"

namespace koli::ctl {
namespace {

/// What is asked about, and all that is known of it.
struct Answer {
    std::string path;
    std::string kind;  // as what it is stored, or would be
    StoredAs stored;
    bool is_readable = true;  // the databases are
    Reasons reasons;
};

/// Two that know the same tell it once.
void Append(const Reasons& more, Reasons* reasons) {
    for (const Reason& reason : more)
        if (std::ranges::none_of(*reasons, [&](const Reason& told) { return told.text == reason.text; }))
            reasons->push_back(reason);
}

/// What has to be so before the daemon can store it.
void AddConditions(const std::string& path, Reasons* reasons) {
    Append(DiskReasons(path), reasons);
    Append(RuleReasons(path, IsFileExist(path.c_str(), nullptr) == 0), reasons);
    Append(LinkReasons(path), reasons);
    Append(ShareReasons(path), reasons);
    if (const char* refusal = PathRefusal(path); refusal != nullptr)
        reasons->push_back({"not_queueable", refusal});
}

/// Where everything is right, nothing is told but what the photo library makes of it, and what has happened.
void AddReasons(const Context& context, Answer* answer) {
    const std::string& path = answer->path;
    const bool is_folder = IsDirExist(path.c_str()) != 0;
    const int type = is_folder ? kNotIndexed : MediaKindOf(path.c_str());
    answer->kind = answer->stored.kind;
    if (answer->kind.empty()) answer->kind = is_folder ? "folder" : KindName(type);

    Reasons& reasons = answer->reasons;
    if (!answer->stored.is_in_step) AddConditions(path, &reasons);
    if (!answer->is_readable)
        reasons.push_back({"database_unreadable", "what is stored of it cannot be read"});
    if (!answer->stored.is_in_step) Append(WaitingReasons(context.places, path), &reasons);
    Append(answer->stored.reasons, &reasons);
    if (reasons.empty() && !answer->stored.is_in_step)
        reasons.push_back({"not_asked_for", "nothing has asked for it yet (koliindexctl add or sync does)"});
    if (type == kStorePhoto && IsFileExist(path.c_str(), nullptr) != 0 && !answer->stored.is_in_photos)
        Append(PhotoReasons(path), &reasons);
    if (is_folder) Append(AlbumReasons(path), &reasons);
}

/// A kind as people name one of it.
std::string OneOf(const std::string& kind) {
    return kind == "music" ? kind : kind == "photo" ? "a picture" : "a " + kind;
}

std::string Headline(const Answer& answer) {
    const StoredAs& stored = answer.stored;
    std::string line = Printable(answer.path);
    if (!answer.is_readable) return "Nobody knows whether " + line + " is stored";
    if (stored.kind.empty())
        return line + " is not stored" +
               (answer.kind.empty() ? "" : "; it would be as " + OneOf(answer.kind));
    line += " is stored as " + OneOf(answer.kind);
    if (stored.is_in_photos) line += " and in the photo library";
    return line + (stored.is_in_step ? "" : ", but not as it is now");
}

void Print(const Answer& answer) {
    printf("%s.\n", Headline(answer).c_str());
    for (const Reason& reason : answer.reasons) {
        std::string text = Printable(reason.text);
        text[0] = static_cast<char>(toupper(static_cast<unsigned char>(text[0])));
        printf("  %s.\n", text.c_str());
    }
}

void PrintJson(const Answer& answer) {
    Section reasons{"reasons"};
    for (const Reason& reason : answer.reasons)
        reasons.records.push_back({{"code", reason.code}, {"text", reason.text}});
    PrintObject({{"path", answer.path},
                 {"kind", answer.kind},
                 {"stored", !answer.stored.kind.empty()},
                 {"photo_library", answer.stored.is_in_photos},
                 {"in_step", answer.stored.is_in_step}},
                {reasons});
}

}  // namespace

int Why(const Context& context, const std::string& given) {
    Answer answer;
    answer.path = given.empty() ? "" : DaemonPath(given);
    if (answer.path.empty()) {
        Complain("%s: %s", given.empty() ? "(empty)" : given.c_str(), PathRefusal(""));
        return kExitUsage;
    }
    StoreReader store;
    if (store.Open(context.places)) answer.stored = StoredAsOf(store, answer.path);
    answer.is_readable = store.error().empty();
    if (!answer.is_readable) answer.stored.is_in_step = false;
    AddReasons(context, &answer);
    if (context.json)
        PrintJson(answer);
    else
        Print(answer);
    return StoreResult(store, answer.stored.is_in_step ? kExitDone : kExitDifferences);
}

}  // namespace koli::ctl
