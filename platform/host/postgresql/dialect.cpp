#include "platform/host/postgresql/dialect.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <vector>

#include "platform/host/postgresql/bytes.h"

namespace koli::host {
namespace {

bool IsWordByte(char c) {
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || (c & 0x80) != 0;
}

bool Equals(std::string_view text, std::string_view word) {
    return text.size() == word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

/// The length of what begins at `at` and holds no parameters: a quoted text, a quoted name, a comment, a
/// word; of anything else one byte.  A doubled quote is two quoted texts.
size_t PieceLength(std::string_view text, size_t at) {
    const auto up_to = [&](std::string_view end, size_t from) {
        const size_t found = text.find(end, from);
        return (found == std::string_view::npos ? text.size() : found + end.size()) - at;
    };
    const std::string_view two = text.substr(at, 2);
    if (text[at] == '\'' || text[at] == '"') return up_to(text.substr(at, 1), at + 1);
    if (two == "--") return up_to("\n", at);
    if (two == "/*") return up_to("*/", at + 2);
    size_t end = at;
    while (end < text.size() && IsWordByte(text[end]))
        ++end;
    return std::max<size_t>(end - at, 1);
}

/// The first words of a text.
std::vector<std::string_view> FirstWords(std::string_view text, size_t count) {
    std::vector<std::string_view> words;
    for (size_t at = 0; at < text.size() && words.size() < count;) {
        const size_t length = PieceLength(text, at);
        if (IsWordByte(text[at])) words.push_back(text.substr(at, length));
        at += length;
    }
    words.resize(count);
    return words;
}

void Classify(ServerStatement* statement) {
    const std::vector<std::string_view> words = FirstWords(statement->text, 3);
    const auto is = [&words](std::string_view word) { return Equals(words[0], word); };
    if (is("BEGIN")) statement->command = Command::kBegin;
    if (is("COMMIT")) statement->command = Command::kCommit;
    if (is("ROLLBACK"))
        statement->command = Equals(words[1], "TO") ? Command::kSavepoint : Command::kRollback;
    if (is("SAVEPOINT") || is("RELEASE")) statement->command = Command::kSavepoint;
    if (!is("INSERT") && !is("UPDATE") && !is("DELETE")) return;
    statement->command = Command::kWrite;
    statement->table = is("UPDATE") ? words[1] : words[2];
}

/// The number in the text of a parameter that is called `name` outside.
int NumberOf(std::string_view name, ServerStatement* statement) {
    constexpr size_t kDigitsMax = 4;
    const auto outside = static_cast<size_t>(std::stoi(std::string(name.substr(0, kDigitsMax))));
    std::vector<int>& numbers = statement->numbers;
    if (numbers.size() < outside + 1) numbers.resize(outside + 1);
    int& number = numbers[outside];
    if (number == 0) number = ++statement->parameters;
    return number;
}

void Replace(std::string* text, std::string_view name, std::string_view value) {
    for (size_t at = 0; (at = text->find(name, at)) != std::string::npos; at += value.size())
        text->replace(at, name.size(), value);
}

/// "excluded.NAME" becomes the parameter that is handed over for it.
std::string WithParameters(const SaveForm& form, std::string text) {
    constexpr std::string_view kHanded = "excluded.";
    const std::vector<const char*> all = form.AllColumns();
    for (size_t at = 0; (at = text.find(kHanded, at)) != std::string::npos;) {
        const size_t name = at + kHanded.size();
        const std::string_view word = std::string_view(text).substr(name, PieceLength(text, name));
        const auto column = std::find(all.begin(), all.end(), word);
        text.replace(at, kHanded.size() + word.size(), "?" + std::to_string(column - all.begin() + 1));
    }
    return text;
}

// Each row of `gap` is a stretch of rows without a sub-folder: from `lo` up to `sub`, the first path behind
// it that lies in one (null behind the last).  '0' follows '/': "FOLDER/SUB0" is behind everything below
// "FOLDER/SUB/".
constexpr const char kFolderQuery[] =
    R"(WITH RECURSIVE gap(lo, sub) AS (SELECT ?1::text COLLATE "C", (@FIRST(?1::text)) UNION ALL)"
    R"( SELECT (@BEHIND) COLLATE "C", (@FIRST(@BEHIND)) FROM gap WHERE sub IS NOT NULL))"
    " SELECT path FROM gap CROSS JOIN @TABLE WHERE path >= lo AND path < coalesce(sub, ?2) ORDER BY path";
constexpr const char kFolderFirst[] =
    "SELECT path FROM @TABLE WHERE path >= @FROM AND path < ?2"
    " AND strpos(substr(path, length(?1) + 1), '/') > 0 ORDER BY path LIMIT 1";
constexpr const char kFolderBehind[] =
    "left(sub, length(?1) + strpos(substr(sub, length(?1) + 1), '/') - 1) || '0'";

std::string FirstFrom(const char* place) {
    std::string first = kFolderFirst;
    Replace(&first, "@FROM", place);
    return first;
}

}  // namespace

ServerStatement ToServer(std::string_view text) {
    ServerStatement statement;
    std::string scratch;
    text = ServerText(text, &scratch);
    std::string& out = statement.text;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const bool is_parameter =
            text[at] == '?' && at + 1 < text.size() && isdigit(static_cast<unsigned char>(text[at + 1])) != 0;
        const size_t length = is_parameter ? 1 + PieceLength(text, at + 1) : PieceLength(text, at);
        const std::string_view piece = text.substr(at, length);
        if (is_parameter) {
            out.append("$").append(std::to_string(NumberOf(piece.substr(1), &statement)));
        } else {
            out.append(piece);
        }
        at += length;
    }
    Classify(&statement);
    return statement;
}

bool HoldsWord(std::string_view text, std::string_view word) {
    for (size_t at = 0, length = 0; at < text.size(); at += length) {
        length = PieceLength(text, at);
        if (Equals(text.substr(at, length), word)) return true;
    }
    return false;
}

std::string SaveTextOf(const SaveForm& form) {
    const std::string key = form.columns[0];
    const std::string row = "SELECT " + SaveParameters(form) + " WHERE NOT EXISTS (SELECT 1 FROM " +
                            form.table + " WHERE " + form.table + "." + key + " = ?1 AND NOT (" +
                            WithParameters(form, SaveDifference(form)) + "))";
    return UpsertText(form, row);
}

std::string FolderRowsTextOf(const char* table) {
    std::string sql = kFolderQuery;
    Replace(&sql, "@FIRST(?1::text)", FirstFrom("?1::text"));
    Replace(&sql, "@FIRST(@BEHIND)", FirstFrom("(@BEHIND)"));
    Replace(&sql, "@BEHIND", kFolderBehind);
    Replace(&sql, "@TABLE", table);
    return sql;
}

}  // namespace koli::host
