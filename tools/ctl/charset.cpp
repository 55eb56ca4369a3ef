#include "tools/ctl/charset.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/media_info.h"
#include "base/path_names.h"
#include "platform/host/text_utf8.h"
#include "platform/kolisdk.h"
#include "tools/ctl/charset_guess.h"
#include "tools/ctl/old_texts.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/terminal.h"

namespace koli::ctl {
namespace {

constexpr size_t kNameSize = 64;  // bytes of a charset's name in the settings
constexpr const char kFallback[] = "windows-1252";

struct OldFile {
    std::string path;
    std::vector<OldText> texts;
};

/// A charset that is tried, and how it does.
struct Trial {
    CharsetCandidate candidate;
    std::unique_ptr<host::TagCharset> charset;  // null: windows-1252, which has everything
    bool is_in_force = false;
    int undecodable = 0;  // texts
    double likelihood = 0;

    bool Decode(const std::string& text, std::string* utf8) const {
        if (charset != nullptr) return host::Utf8FromCharset(*charset, text, kTextSize - 1, utf8);
        std::string scratch;
        *utf8 = host::Utf8FromUnmarked(text, &scratch);
        return true;
    }
};

/// The machine's charset, and the usual ones that this machine knows.
std::vector<Trial> TrialsMake(const char* in_force) {
    std::vector<CharsetCandidate> candidates(CharsetCandidates().begin(), CharsetCandidates().end());
    const auto is_in_force = [in_force](const CharsetCandidate& candidate) {
        return strcasecmp(candidate.name, in_force) == 0;
    };
    const auto found = std::ranges::find_if(candidates, is_in_force);
    if (found == candidates.end())
        candidates.insert(candidates.begin(), {in_force});
    else
        std::rotate(candidates.begin(), found, found + 1);
    std::vector<Trial> trials;
    for (const CharsetCandidate& candidate : candidates) {
        std::string refusal;
        Trial trial{candidate, nullptr, is_in_force(candidate)};
        const bool is_fallback = strcmp(candidate.name, kFallback) == 0;
        if (!is_fallback) trial.charset = host::TagCharset::Open(candidate.name, &refusal);
        if (is_fallback || trial.charset != nullptr) trials.push_back(std::move(trial));
    }
    return trials;
}

/// All files have one setting, so that they are judged together.
void Sort(std::vector<Trial>* trials, const std::vector<OldFile>& files) {
    for (Trial& trial : *trials)
        for (const OldFile& file : files)
            for (const OldText& text : file.texts) {
                std::string utf8;
                if (trial.Decode(text.bytes, &utf8))
                    trial.likelihood += CharsetLikelihood(trial.candidate, text.bytes, utf8);
                else
                    ++trial.undecodable;
            }
    std::ranges::stable_sort(*trials, [](const Trial& a, const Trial& b) {
        return a.undecodable != b.undecodable ? a.undecodable < b.undecodable : a.likelihood > b.likelihood;
    });
}

/// The file's texts in the charset, '' where it has none in an old one.  False when they cannot be in it.
bool Decode(const Trial& trial, const OldFile& file, std::vector<std::string>* columns) {
    columns->assign(TextColumns().size(), "");
    return std::ranges::all_of(
        file.texts, [&](const OldText& text) { return trial.Decode(text.bytes, &(*columns)[text.column]); });
}

/// The charset's name and the texts in a line, which fits on the terminal when it goes to one.
std::string LineOf(const char* charset, const std::vector<std::string>& columns) {
    std::string texts;
    for (const std::string& text : columns)
        if (!text.empty()) texts.append(texts.empty() ? "" : " / ").append(Printable(text));
    char name[kNameSize + 4];
    snprintf(name, sizeof name, "  %-14s  ", charset);
    const std::string line = name + texts;
    return isatty(STDOUT_FILENO) == 1 ? CutEnd(line, TerminalSizeOf(STDOUT_FILENO).columns) : line;
}

void PrintForPeople(const std::vector<Trial>& trials, const std::vector<OldFile>& files) {
    for (const OldFile& file : files) {
        printf("%s%s\n", Printable(file.path).c_str(),
               file.texts.empty() ? ": all its texts are UTF-8 or UTF-16" : "");
        std::vector<std::string> columns;
        for (const Trial& trial : trials)
            if (!file.texts.empty() && Decode(trial, file, &columns))
                printf("%s\n", LineOf(trial.candidate.name, columns).c_str());
    }
    if (std::ranges::all_of(files, [](const OldFile& file) { return file.texts.empty(); })) return;
    const Trial& best = trials.front();
    if (best.is_in_force) return (void)printf("They are read as %s already.\n", best.candidate.name);
    printf(
        "If the first is right, put this line into %s, restart koliindexd and run\n"
        "koliindexctl rebuild music:\ntagcharset=%s\n",
        paths::kConfig, best.candidate.name);
}

void PrintJson(const std::vector<Trial>& trials, const std::vector<OldFile>& files) {
    const std::vector<std::string> texts = TextColumns();
    std::vector<std::string> names = {"path", "charset", "in_force"};
    names.insert(names.end(), texts.begin(), texts.end());
    RowPrinter rows(names, true);
    std::vector<std::string> columns;
    for (const OldFile& file : files)
        for (const Trial& trial : trials) {
            if (file.texts.empty() || !Decode(trial, file, &columns)) continue;
            std::vector<Field> fields = {file.path, trial.candidate.name, trial.is_in_force};
            fields.insert(fields.end(), columns.begin(), columns.end());
            rows.Row(fields);
        }
}

}  // namespace

int Charset(const Context& context, const std::vector<std::string>& paths) {
    int result = kExitDone;
    std::vector<OldFile> files;
    for (const std::string& path : paths) {
        OldFile file{DaemonPath(path), {}};
        const int code = OldTextsRead(file.path, &file.texts);
        if (code == kExitDone) files.push_back(std::move(file));
        result = std::max(result, code);
    }
    char in_force[kNameSize];
    if (KLIBFileGetKeyValue(paths::kConfig, "tagcharset", in_force, sizeof in_force, 0) <= 0)
        CopyText(in_force, sizeof in_force, kFallback);
    std::vector<Trial> trials = TrialsMake(in_force);
    Sort(&trials, files);
    (context.json ? PrintJson : PrintForPeople)(trials, files);
    return result;
}

}  // namespace koli::ctl
