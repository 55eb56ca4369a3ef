// koliaacinfo: prints the figures of a raw AAC stream (ADTS) on one line, for hosts whose AAC decoder cannot.
//
//     koliaacinfo -i FILE
//     aac duration;12.539;samplerate;44100;channel;2;bitrate;128012;
//
// The seconds and the bit rate are those of all the stream's whole frames; rate and channels stand in the
// first frame's header.  Exit status 0 with the line, 1 without it: no raw AAC stream, 2: wrong call.
#include <cstdio>
#include <cstring>

#include "tools/aac/adts_stream.h"

int main(int argc, char** argv) {
    if (argc != 3 || strcmp(argv[1], "-i") != 0) {
        fprintf(stderr, "usage: koliaacinfo -i FILE\n");
        return 2;
    }
    koli::AdtsFigures figures;
    if (!koli::AdtsRead(argv[2], &figures)) return 1;
    const bool is_printed = printf("aac duration;%.3f;samplerate;%d;channel;%d;bitrate;%lld;\n",
                                   koli::AdtsSeconds(figures), figures.sample_rate, figures.channels,
                                   static_cast<long long>(koli::AdtsBitrate(figures))) > 0 &&
                            fflush(stdout) == 0;
    return is_printed ? 0 : 1;
}
