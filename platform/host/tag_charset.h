// A character set of old tags, other than UTF-8, as iconv knows it.
#pragma once

#include <iconv.h>

#include <memory>
#include <string>
#include <string_view>

namespace koli::host {

/// Decodes texts of one charset in which ASCII means itself.  Of one thread.
class TagCharset {
  public:
    /// Null when iconv does not know `name`, or when it is one in which ASCII bytes mean something else or
    /// nothing by themselves (UTF-16, UTF-7, ISO-2022-JP, EBCDIC); `refusal` then says which ("is not
    /// known").
    static std::unique_ptr<TagCharset> Open(const std::string& name, std::string* refusal);
    ~TagCharset() { iconv_close(decoder_); }
    TagCharset(const TagCharset&) = delete;
    TagCharset& operator=(const TagCharset&) = delete;

    const std::string& name() const { return name_; }

    enum class Outcome {
        kWhole,
        kCut,   // its only fault is an incomplete sequence at the very end
        kWrong  // holds what the charset does not have
    };
    /// Decodes `text`; `utf8` receives it as valid UTF-8, without the sequence that is cut.  What it holds
    /// after kWrong means nothing.  Throws std::bad_alloc alone.
    Outcome Decode(std::string_view text, std::string* utf8) const;

  private:
    TagCharset(std::string name, iconv_t decoder) : name_(std::move(name)), decoder_(decoder) {}
    bool KeepsAscii();

    /// What the charset gives for one of the two ASCII characters that national sets replace.
    struct Replaced {
        char byte;
        std::string text;
    };
    std::string name_;
    iconv_t decoder_;
    Replaced replaced_[2] = {{'\\', ""}, {'~', ""}};
};

/// The charset that KOLITagCharsetSet has put in force; null: windows-1252.
const TagCharset* TagCharsetInForce();

}  // namespace koli::host
