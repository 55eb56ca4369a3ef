#include "daemon/queue_line.h"

#include "base/log.h"
#include "daemon/requests.h"

namespace koli {
namespace {

constexpr const char kModule[] = "koliindexd";

void SkipNuls(FILE* file) {
    int c = 0;
    while (c == '\0')
        c = getc_unlocked(file);
    if (c != EOF) ungetc(c, file);
}

/// What comes behind a text that fills the buffer.
QueueLine::End EndBehind(FILE* file) {
    const int c = getc_unlocked(file);
    if (c == EOF) return QueueLine::kFile;
    ungetc(c, file);
    return c == '\n' ? QueueLine::kFilled : QueueLine::kFull;
}

void LogBadFormat(const QueueLine& line) {
    KOLI_LOG("Bad format [%s].", line.text);
}

}  // namespace

bool QueueLineRead(FILE* file, QueueLine* line) {
    line->length = 0;
    line->end = QueueLine::kFull;
    while (line->end == QueueLine::kFull && line->length < paths::kQueueLineSize - 1) {
        const int c = getc_unlocked(file);
        if (c == EOF) {
            line->end = QueueLine::kFile;
        } else if (c == '\0') {
            line->end = QueueLine::kNul;
        } else {
            line->text[line->length++] = static_cast<char>(c);
            if (c == '\n') line->end = QueueLine::kNewline;
        }
    }
    line->text[line->length] = '\0';
    if (line->end == QueueLine::kFull) line->end = EndBehind(file);
    if (line->end == QueueLine::kNul) SkipNuls(file);
    return line->end != QueueLine::kFile || line->length > 0;
}

void QueueLineExecute(QueueLine* line, int stores) {
    if (line->length < 2 || line->text[1] != ':' || line->end == QueueLine::kNul) {
        LogBadFormat(*line);
        return;
    }
    if (line->end == QueueLine::kNewline) {
        line->text[--line->length] = '\0';
    } else {
        KOLI_LOG("Warning! No new line here.");
    }
    const RequestArgument argument{.text = line->text + 2,
                                   .is_cut = line->end == QueueLine::kFull,
                                   .has_end = line->end != QueueLine::kFile,
                                   .stores = stores};
    if (!RequestExecute(line->text[0], argument)) LogBadFormat(*line);
}

}  // namespace koli
