#include "tools/ctl/setup_manifest.h"

#include <cstdint>
#include <cstdio>

namespace koli::ctl {
namespace {

constexpr const char* kWords[] = {"folder", "link", "file"};  // by SetupStep::Kind

}  // namespace

std::string ManifestLine(const SetupStep& step) {
    std::string line = std::string(kWords[step.kind]) + '\t' + step.path;
    if (step.kind == SetupStep::kLink) line += '\t' + step.value;
    if (step.kind == SetupStep::kFile) line += '\t' + Checksum(step.value);
    return line + '\n';
}

bool ManifestLineParse(const std::string& line, SetupStep* step) {
    const size_t first = line.find('\t');
    if (first == std::string::npos) return false;
    const size_t second = line.find('\t', first + 1);
    const bool has_value = second != std::string::npos;
    step->path = line.substr(first + 1, has_value ? second - first - 1 : std::string::npos);
    step->value = has_value ? line.substr(second + 1) : "";
    for (const auto kind : {SetupStep::kFolder, SetupStep::kLink, SetupStep::kFile}) {
        if (line.compare(0, first, kWords[kind]) != 0) continue;
        step->kind = kind;
        return step->path.starts_with('/') && has_value == (kind != SetupStep::kFolder);
    }
    return false;
}

std::string Checksum(const std::string& text) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    char digits[17];
    snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
    return digits;
}

}  // namespace koli::ctl
