// The system log and the machine's settings, in the test's hands.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "platform/kolisdk.h"
#include "tests/fake_platform.h"

using koli::test::fake;

void koli::LogError(LogSite site, const char* format, ...) {
    constexpr const char* kForms[] = {"%s (#) ", "%s:# ", "%s(#) ", "%s(#): ", "(%s, #) ", ""};
    char line[9000];
    const int begun = snprintf(line, sizeof line, kForms[static_cast<int>(site.form)], site.module);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line + begun, sizeof line - static_cast<size_t>(begun), format, arguments);
    va_end(arguments);
    if (log_sink != nullptr) return log_sink(line);
    // "m: Function(12) - Text"
    std::string& text = fake.log.emplace_back(line);
    const char digits[] = "0123456789";
    const size_t number = text.find_first_of(digits, text.find_first_of(" (:,", 1));
    if (site.form == LogForm::kBare && number < text.size() && text.find('#') == std::string::npos)
        text.replace(number, text.find_first_not_of(digits, number) - number, 1, '#');
}

void koli::LogNotice(LogSite, const char*, ...) {}

extern "C" {

int KLIBFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int) {
    const std::string& value = fake.values[std::string(file) + ':' + key];
    errno = fake.unreadable;
    if (errno != 0) return -1;
    snprintf(buffer, static_cast<size_t>(size), "%s", value.c_str());
    return value.empty() ? -1 : 0;
}
int BlKOLIFileCheckKeyValue(const char* file, const char* key, const char* value, int) {
    char found[64];
    return KLIBFileGetKeyValue(file, key, found, sizeof found, 0) == 0 && strcmp(found, value) == 0 ? 1 : 0;
}
int KLIBFileGetLine(const char* file, const char* key, char* buffer, int size, int) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(key, 0) == 0) return snprintf(buffer, static_cast<size_t>(size), "%s", line.c_str());
    return lines.eof() ? 0 : -1;
}
}  // extern "C"
