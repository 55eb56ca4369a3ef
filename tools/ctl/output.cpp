#include "tools/ctl/output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numeric>
#include <utility>

#include "base/text/utf8.h"
#include "tools/ctl/terminal.h"

namespace koli::ctl {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kRowsForWidths = 200;
constexpr size_t kWidthMax = 60;  // of a column that is not the last
constexpr size_t kWidthMin = 8;   // to which columns are cut on a narrow terminal
constexpr size_t kGap = 2;

/// Control characters, and what has text from right to left or begins a line: a name could pass for another.
bool IsControl(std::string_view sequence) {
    const auto first = static_cast<unsigned char>(sequence[0]);
    const auto last = static_cast<unsigned char>(sequence.back());
    if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
    if (sequence.starts_with("\xE2\x80")) return last >= 0xA8 && last <= 0xAE;  // U+2028 to 202E
    if (sequence.starts_with("\xE2\x81")) return last >= 0xA6 && last <= 0xA9;  // U+2066 to 2069
    return first == 0xC2 && last < 0xA0;                                        // C1
}

void AppendEscaped(std::string_view bytes, std::string* text) {
    for (const char c : bytes) {
        char escape[8];
        snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(c));
        text->append(c == '\n' ? "\\n" : c == '\t' ? "\\t" : escape);
    }
}

bool IsUtf8(std::string_view text) {
    for (size_t length = 0; !text.empty(); text.remove_prefix(length))
        if ((length = Utf8Length(text)) == 0) return false;
    return true;
}

std::string Hex(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char digits[4];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

Json JsonOf(const Field& field) {
    switch (field.kind) {
        case Field::kNumber:
            return field.number;
        case Field::kReal:
            return field.real;
        case Field::kBoolean:
            return field.number != 0;
        default:
            return field.text;
    }
}

/// A text that is not UTF-8 (the name of a file may be anything) also has its bytes beside it.
void AddTo(Json& object, const std::string& name, const Field& field) {
    object[name] = JsonOf(field);
    if (field.kind == Field::kText && !IsUtf8(field.text)) object[name + "_hex"] = Hex(field.text);
}

Json JsonOf(const Record& record) {
    Json object = Json::object();
    for (const auto& [name, field] : record)
        AddTo(object, name, field);
    return object;
}

/// It may be looked at on a terminal: what Printable() does not let through is escaped as JSON does it.
std::string Dump(const Json& json, int indent) {
    const std::string text = json.dump(indent, ' ', false, Json::error_handler_t::replace);
    std::string safe;
    for (std::string_view rest = text, sequence; !rest.empty(); rest.remove_prefix(sequence.size())) {
        sequence = rest.substr(0, std::max<size_t>(Utf8Length(rest), 1));
        const auto last = static_cast<unsigned char>(sequence.back());
        const bool is_line_break = last == '\n';  // between values
        if (is_line_break || !IsControl(sequence)) {
            safe.append(sequence);
            continue;
        }
        const unsigned high = sequence.starts_with("\xE2\x81") ? 0x2040 : sequence.size() == 3 ? 0x2000 : 0;
        char escape[8];
        snprintf(escape, sizeof escape, "\\u%04x", high + (high > 0 ? last & 0x3FU : last));
        safe.append(escape);
    }
    return safe;
}

/// As people see it: the times of a playlist are stored with a line break at their end.
std::string Shown(const std::string& name, const Field& field) {
    std::string_view text = field.text;
    if ((name == "ctime" || name == "mtime") && text.ends_with('\n')) text.remove_suffix(1);
    return Printable(text);
}

void PrintAligned(const Record& record, const char* margin, bool leave_out_unknown) {
    size_t width = 0;
    for (const auto& [name, field] : record)
        width = std::max(width, name.size());
    for (const auto& [name, field] : record) {
        const bool is_unknown =
            field.kind == Field::kText ? field.text.empty() : field.number == 0 && field.real == 0;
        if (is_unknown && leave_out_unknown) continue;
        printf("%s%-*s  %s\n", margin, static_cast<int>(width), name.c_str(), Shown(name, field).c_str());
    }
}

/// Record by record: as one object a list of many would take a multiple of its text.
void PrintListJson(const Section& section) {
    const char* before = "[\n  ";
    const auto print = [&before](const Record& record) {
        printf("%s%s", std::exchange(before, ",\n  "), Dump(JsonOf(record), -1).c_str());
    };
    for (const Record& record : section.records)
        print(record);
    if (section.more) section.more(print);
    printf(*before == '[' ? "[]" : "\n]");
}

void PrintObjectJson(const Record& record, const std::vector<Section>& sections) {
    const char* before = "{";
    const Json fields = JsonOf(record);
    for (const auto& [name, value] : fields.items())
        printf("%s\n%s: %s", std::exchange(before, ","), Dump(name, -1).c_str(), Dump(value, -1).c_str());
    for (const Section& section : sections) {
        printf("%s\n%s: ", std::exchange(before, ","), Dump(section.name, -1).c_str());
        if (section.is_one)
            printf("%s", Dump(JsonOf(section.records.at(0)), -1).c_str());
        else
            PrintListJson(section);
    }
    printf(*before == '{' ? "{}\n" : "\n}\n");
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const size_t valid = Utf8Length(text);
        const std::string_view sequence = text.substr(0, std::max<size_t>(valid, 1));
        if (valid == 0 || IsControl(sequence))
            AppendEscaped(sequence, &printable);
        else
            printable.append(sequence);
        text.remove_prefix(sequence.size());
    }
    return printable;
}

std::string SizeText(int64_t bytes) {
    constexpr const char* kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto size = static_cast<double>(bytes);
    size_t unit = 0;
    for (; size >= 1024 && unit + 1 < std::size(kUnits); ++unit)
        size /= 1024;
    char text[32];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", size, kUnits[unit]);
    return text;
}

std::string Counted(int64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

Field Field::Real(double value) {
    Field field;
    char digits[32];
    snprintf(digits, sizeof digits, "%.6g", value);
    field.kind = kReal;
    field.text = digits;
    field.real = value;
    return field;
}

Field Field::Of(const host::SqlStatement& row, int column) {
    switch (row.KindOf(column)) {
        case host::SqlStatement::Kind::kInteger:
            return row.Number(column);
        case host::SqlStatement::Kind::kReal:
            return Real(row.RealNumber(column));
        default:
            return row.Field(column);
    }
}

Record RecordOf(const host::SqlStatement& row) {
    Record record;
    for (int column = 0; column < row.columns(); ++column)
        record.emplace_back(row.Name(column), Field::Of(row, column));
    return record;
}

std::vector<std::string> RecordLines(const Record& record, size_t columns) {
    size_t width = 0;
    for (const auto& [name, field] : record)
        width = std::max(width, name.size());
    const size_t room = columns - std::min(columns, width + kGap);
    std::vector<std::string> lines;
    for (const auto& [name, field] : record) {
        const std::string head = name + std::string(width - name.size() + kGap, ' ');
        lines.push_back(CutEnd(head + CutMiddle(Printable(field.text), room), columns));
    }
    return lines;
}

std::string RecordJson(const Record& record, const std::vector<Section>& lists, bool is_compact) {
    Json object = JsonOf(record);
    for (const Section& list : lists) {
        Json& records = object[list.name] = Json::array();
        for (const Record& each : list.records)
            records.push_back(JsonOf(each));
    }
    return Dump(object, is_compact ? -1 : 2);
}

void PrintRecord(const Record& record, bool json) {
    if (json)
        printf("%s\n", RecordJson(record, {}, false).c_str());
    else
        PrintAligned(record, "", false);
}

void PrintObject(const Record& record, const std::vector<Section>& sections) {
    PrintObjectJson(record, sections);
}

void PrintSections(const std::vector<Section>& sections, bool json) {
    if (json) return PrintObjectJson({}, sections);
    for (const Section& section : sections) {
        const auto print = [&section](const Record& record) {
            printf("%s\n", section.name.c_str());
            PrintAligned(record, "  ", true);
        };
        std::for_each(section.records.begin(), section.records.end(), print);
        if (section.more) section.more(print);
    }
}

// ---- RowPrinter

/// The last column stays free: some terminals begin a new line when it is filled.
RowPrinter::RowPrinter(std::vector<std::string> columns, bool json)
    : columns_(std::move(columns)),
      json_(json),
      room_(!json && isatty(STDOUT_FILENO) == 1 ? TerminalSizeOf(STDOUT_FILENO).columns - 1 : 0) {}

RowPrinter::~RowPrinter() {
    if (json_)
        printf(count_ > 0 ? "\n]\n" : "[]\n");
    else
        PrintHeld();
}

void RowPrinter::PrintObject(const std::vector<Field>& fields) const {
    Record record;
    for (size_t i = 0; i < columns_.size() && i < fields.size(); ++i)
        record.emplace_back(columns_[i], fields[i]);
    printf("%s%s", count_ > 0 ? ",\n" : "[\n", Dump(JsonOf(record), -1).c_str());
}

void RowPrinter::Row(const std::vector<Field>& fields) {
    if (json_) {
        PrintObject(fields);
    } else {
        std::vector<std::string> texts;
        texts.reserve(fields.size());
        for (size_t i = 0; i < columns_.size() && i < fields.size(); ++i)
            texts.push_back(Shown(columns_[i], fields[i]));
        if (has_widths_)
            PrintLine(texts);
        else
            held_.push_back(std::move(texts));
        if (held_.size() >= kRowsForWidths) PrintHeld();
    }
    ++count_;
}

void RowPrinter::PrintHeld() {
    if (held_.empty()) return;
    held_.insert(held_.begin(), columns_);
    widths_.assign(columns_.size(), 0);
    for (const std::vector<std::string>& texts : held_)
        for (size_t i = 0; i < texts.size(); ++i)
            widths_[i] = std::max(widths_[i], ColumnsOf(texts[i]));
    if (room_ > 0)
        FitWidths();
    else
        for (size_t& width : widths_)
            width = std::min(width, kWidthMax);
    for (const std::vector<std::string>& texts : held_)
        PrintLine(texts);
    held_.clear();
    has_widths_ = true;
}

/// The widest columns become narrower until there is room for all.
void RowPrinter::FitWidths() {
    const size_t gaps = kGap * (widths_.size() - 1);
    for (size_t taken = std::accumulate(widths_.begin(), widths_.end(), gaps); taken > room_; --taken) {
        size_t& widest = *std::max_element(widths_.begin(), widths_.end());
        if (widest <= kWidthMin) return;
        --widest;
    }
}

/// On a terminal as wide as the column; of a path its end tells more than its middle.
std::string RowPrinter::Cut(size_t column, const std::string& text) const {
    if (room_ == 0) return text;
    return columns_[column] == "path" ? CutMiddle(text, widths_[column]) : CutEnd(text, widths_[column]);
}

void RowPrinter::PrintLine(const std::vector<std::string>& texts) const {
    std::string line;
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string text = Cut(i, texts[i]);
        line += text;
        if (i + 1 == texts.size()) break;
        const size_t width = ColumnsOf(text);
        line.append((widths_[i] > width ? widths_[i] - width : 0) + kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    printf("%s\n", line.c_str());
}

}  // namespace koli::ctl
