// How likely it is that a text is written in a charset: by the letters that come out.
#pragma once

#include <span>
#include <string_view>

namespace koli::ctl {

/// A charset of old tags that is worth a try.
struct CharsetCandidate {
    const char* name;  // as iconv knows it
    /// Of a charset of two bytes a character: the first bytes of its frequent characters.  0: one byte each.
    unsigned char first = 0, last = 0;
    unsigned char trail = 0;                      // lowest second byte of these
    unsigned char kana_first = 0, kana_last = 0;  // more of such first bytes
};

/// All of them; of two that are as likely the one in front comes first.
std::span<const CharsetCandidate> CharsetCandidates();

/// How much `text`, which `candidate` decodes to `utf8`, looks like a text: about 1 for each byte beyond
/// ASCII, less for what no language writes.
double CharsetLikelihood(const CharsetCandidate& candidate, std::string_view text, std::string_view utf8);

}  // namespace koli::ctl
