#include "base/id3_genres.h"

#include <iterator>

namespace koli {
namespace {

// The spellings are those that existing libraries were indexed with.
// clang-format off
constexpr const char* kGenres[] = {
    /*   0 */ "Blues", "Classic Rock", "Country", "Dance", "Disco",
    /*   5 */ "Funk", "Grunge", "Hip-Hop", "Jazz", "Metal",
    /*  10 */ "New Age", "Oldies", "Other", "Pop", "R&B",
    /*  15 */ "Rap", "Reggae", "Rock", "Techno", "Industrial",
    /*  20 */ "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack",
    /*  25 */ "Euro-Techno", "Ambient", "Trip-Hop", "Vocal", "Jazz+Funk",
    /*  30 */ "Fusion", "Trance", "Classical", "Instrumental", "Acid",
    /*  35 */ "House", "Game", "Sound Clip", "Gospel", "Noise",
    /*  40 */ "AlternRock", "Bass", "Soul", "Punk", "Space",
    /*  45 */ "Meditative", "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic",
    /*  50 */ "Darkwave", "Techno-Industrial", "Electronic", "Pop-Folk", "Eurodance",
    /*  55 */ "Dream", "Southern Rock", "Comedy", "Cult", "Gangsta",
    /*  60 */ "Top 40", "Christian Rap", "Pop/Funk", "Jungle", "Native American",
    /*  65 */ "Cabaret", "New Wave", "Psychadelic", "Rave", "Showtunes",
    /*  70 */ "Trailer", "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz",
    /*  75 */ "Polka", "Retro", "Musical", "Rock & Roll", "Hard Rock",
    /*  80 */ "Folk", "Folk/Rock", "National Folk", "Swing", "Fast-Fusion",
    /*  85 */ "Bebob", "Latin", "Revival", "Celtic", "Bluegrass",
    /*  90 */ "Avantgarde", "Gothic Rock", "Progressive Rock", "Psychedelic Rock", "Symphonic Rock",
    /*  95 */ "Slow Rock", "Big Band", "Chorus", "Easy Listening", "Acoustic",
    /* 100 */ "Humour", "Speech", "Chanson", "Opera", "Chamber Music",
    /* 105 */ "Sonata", "Symphony", "Booty Bass", "Primus", "Porn Groove",
    /* 110 */ "Satire", "Slow Jam", "Club", "Tango", "Samba",
    /* 115 */ "Folklore", "Ballad", "Power Ballad", "Rhythmic Soul", "Freestyle",
    /* 120 */ "Duet", "Punk Rock", "Drum Solo", "A capella", "Euro-House",
    /* 125 */ "Dance Hall", "Goa", "Drum & Bass", "Club House", "Hardcore",
    /* 130 */ "Terror", "Indie", "BritPop", "Afro-Punk", "Polsk Punk",
    /* 135 */ "Beat", "Christian Gangsta", "Heavy Metal", "Black Metal", "Crossover",
    /* 140 */ "Contemporary C", "Christian Rock", "Merengue", "Salsa", "Thrash Metal",
    /* 145 */ "Anime", "JPop", "SynthPop",
};
// clang-format on
static_assert(std::size(kGenres) == kGenreCount);

}  // namespace

const char* Id3GenreName(int number) {
    return number >= 0 && number < kGenreCount ? kGenres[number] : nullptr;
}

}  // namespace koli
