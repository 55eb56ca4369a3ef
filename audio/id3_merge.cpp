#include "audio/id3_merge.h"

#include <cstdio>
#include <cstring>

#include "base/id3_genres.h"
#include "base/log.h"
#include "base/parse_number.h"
#include "base/path_names.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";

constexpr double kMaxDuration = 43200.0;  // seconds; from 12 hours on a duration is not believed
constexpr int kFirstYear = 1200;
constexpr int kLastYear = 2200;

void MergeStream(MediaInfo* record, const MpegHeaderInfo& header) {
    if (header.duration > 0.0 && header.duration < kMaxDuration)
        record->duration = static_cast<float>(header.duration);
    record->audio_bitrate = header.bitrate;
    record->sample_rate = header.sample_rate;
    switch (header.channel_mode) {
        case 0:
        case 1:
        case 2:
            record->channels = 2;
            break;
        case 3:
            record->channels = 1;
            break;
        default:
            record->channels = 0;
    }
}

/// Stores a text of the ID3v2 tag together with its mark.  False when the tag has none.
bool StoreV2Text(char (&field)[kTextSize], BeInt32* mark, const char* text, int32_t is_utf16) {
    if (text[0] == '\0') return false;
    memset(field, 0, sizeof field);
    if (is_utf16 != 0)
        Utf16BomCopy(text, field, sizeof field);
    else
        CopyText(field, sizeof field, text);
    *mark = is_utf16;
    return true;
}

/// Stores a text of the ID3v1 tag.  One that fills its place there has no end of its own: it overwrites the
/// beginning of a longer text that the field was preset with, and ends where that one does.
template <size_t size>
void StoreV1Text(char (&field)[kTextSize], const char (&text)[size]) {
    if (text[0] == '\0') return;
    const size_t length = strnlen(text, size);
    memcpy(field, text, length);
    if (length < size) field[length] = '\0';
    StringTrim(field);
}

void MergeTexts(MediaInfo* record, const Id3v1Block& v1, const Id3v2Fields& v2) {
    if (!StoreV2Text(record->title, &record->title_utf16, v2.title, v2.title_utf16) && v1.title[0] != '\0') {
        memset(record->title, 0, sizeof record->title);  // drops the name of the file that it was preset with
        StoreV1Text(record->title, v1.title);
    }
    if (!StoreV2Text(record->artist, &record->artist_utf16, v2.artist, v2.artist_utf16))
        StoreV1Text(record->artist, v1.artist);
    if (!StoreV2Text(record->album, &record->album_utf16, v2.album, v2.album_utf16))
        StoreV1Text(record->album, v1.album);
    StoreV2Text(record->composer, &record->composer_utf16, v2.composer, v2.composer_utf16);
    if (!StoreV2Text(record->comment, &record->comment_utf16, v2.comment, v2.comment_utf16))
        StoreV1Text(record->comment, v1.comment);
}

void MergeYear(MediaInfo* record, const Id3v1Block& v1, const Id3v2Fields& v2) {
    char text[sizeof v2.year];
    if (v2.year[0] != '\0') {
        CopyText(text, sizeof text, v2.year);
    } else {
        memcpy(text, v1.year, sizeof v1.year);
        text[sizeof v1.year] = '\0';
    }
    int32_t year = record->year;
    if (text[0] != '\0') {
        const char* end = nullptr;
        year = ParseInt32(text, &end);
        if (*end != '\0') year = 0;
    }
    record->year = year >= kFirstYear && year <= kLastYear ? year : 0;
}

/// The number between the first '(' and the last ')' of a genre such as "(17)Rock", stored as the name it
/// stands for. Anything else between them stores nothing.
void StoreNumberedGenre(MediaInfo* record, const char* number) {
    const char* end = nullptr;
    const int32_t value = ParseInt32(number, &end);
    if (end == number || *end != '\0') return;
    if (const char* name = Id3GenreName(value); name != nullptr)
        CopyText(record->genre, sizeof record->genre, name);
    else
        snprintf(record->genre, sizeof record->genre, "%d", value);
}

void MergeGenre(MediaInfo* record, const Id3v1Block& v1, Id3v2Fields* v2) {
    if (v2->genre[0] == '\0') {
        // Number 0 is what many writers leave behind when they know no genre.
        if (v1.genre != 0 && v1.genre < kGenreCount)
            CopyText(record->genre, sizeof record->genre, Id3GenreName(v1.genre));
        return;
    }
    const char* open = strchr(v2->genre, '(');
    char* close = strrchr(v2->genre, ')');
    if (open == nullptr || close == nullptr || close < open) {
        StoreV2Text(record->genre, &record->genre_utf16, v2->genre, v2->genre_utf16);
        return;
    }
    *close = '\0';
    StoreNumberedGenre(record, open + 1);
}

void MergeTrackAndDisc(MediaInfo* record, const Id3v1Block& v1, const Id3v2Fields& v2) {
    const char v1_track = v1.comment[29];
    if (v2.track[0] != '\0')
        record->track = ParseInt32(v2.track);
    else if (v1_track != ' ' && v1_track != 0 && v1.comment[28] == 0)
        record->track = static_cast<uint8_t>(v1_track);

    if (v2.disc[0] == '\0') return;
    const char* end = nullptr;
    const int32_t disc = ParseInt32(v2.disc, &end);
    record->disc = *end == '\0' ? disc : 0;
}

}  // namespace

void Id3MergeIntoRecord(MediaInfo* record, const MpegHeaderInfo* header, const Id3v1Block* v1,
                        Id3v2Fields* fields) {
    if (record == nullptr || header == nullptr || v1 == nullptr || fields == nullptr) {
        KOLI_LOG("Bad parameter.");
        return;
    }
    MergeStream(record, *header);
    MergeTexts(record, *v1, *fields);
    MergeYear(record, *v1, *fields);
    MergeGenre(record, *v1, fields);
    MergeTrackAndDisc(record, *v1, *fields);
    record->has_cover = fields->picture_count;
}

}  // namespace koli
