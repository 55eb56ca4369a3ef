#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "tools/ctl/charset.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {

void AddCharset(CLI::App& app, Arguments& a) {
    CLI::App* charset =
        AddCommand(app, "charset", "What the texts of old tags are in each likely charset, likely ones first",
                   "charset /volume1/music/Album/Song.mp3", a);
    charset->add_option("FILE", a.paths, "MP3 or FLAC files")->required();
    SetWork(charset, a, [&a] { return Charset(a.context, a.paths); });
}

}  // namespace koli::ctl
