// What has moved, and which folders are gone, until it is asked for.
//
// Captions, albums and rights are stored by path and follow requests alone.  Things that moved are told
// together: first everything leaves the path at which it is stored, for a name that is in nobody's use, then
// it goes where it is now.  So nothing meets what is stored of another one, whatever stands at which path
// when the requests are executed; and the names between are in none of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace koli::watch {

/// What is to be asked for.
struct Request {
    static constexpr char kCompare = '=';  // what happened in the folder is not known in detail
    static constexpr char kVacated =
        '-';  // no request: the folder has moved from here, to `other`, or is gone
    static constexpr char kArrived = '+';  // no request: the file has moved here, from `other`
    static constexpr char kBurst = '*';    // at least `files` of the folder have changed

    char code;               // letter of the queue, or one of these
    std::string path;        // absolute
    std::string other = {};  // of an 'N': where it is stored
    size_t files = 0;
};

class Moves {
  public:
    /// `from`, with all below it when it is a tree, is `to` now.  False when it had moved to `from` before:
    /// what is stored there is that of a file that it replaced.
    bool Moved(bool is_tree, const std::string& to, const std::string& from, int64_t now);

    /// The file is gone; this matters when it had moved there.
    void FileGone(const std::string& path);

    /// The folder is gone.
    void FolderGone(const std::string& path, int64_t now);

    /// `folder` is out of reach, a mount point or a whole share: what lies in it stays stored.  What was
    /// moved into it from elsewhere is gone from there.
    void Lost(const std::string& folder);

    /// Something stored has moved into the new folder, which has to be an album before that.
    void NeedsAlbum(const std::string& folder);

    /// Hands over everything, in the order in which it must be asked for.
    std::vector<Request> Take();

    bool empty() const { return held_.empty(); }
    /// True when the oldest entry is `quiet` milliseconds old, or there are so many that they should leave.
    bool IsDue(int64_t now, int64_t quiet) const;

  private:
    struct Held {
        bool is_tree;
        std::string stored;      // path at which the databases have it
        std::string from;        // the same after all that is held before it has left
        std::string place = {};  // where its rows wait; `from` when they stay there
        std::string now = {};    // "" when it is gone
        bool is_lost = false;
    };
    Held Found(bool is_tree, const std::string& path) const;
    void Hold(Held held, int64_t now);
    void Clear(const std::string& path, int64_t now);
    std::string AsidePath(const std::string& from, bool is_tree) const;
    static void Place(const Held& held, std::vector<Request>* requests);

    std::vector<Held> held_;              // in the order in which they leave
    std::map<std::string, size_t> here_;  // by where they are now
    std::vector<std::string> albums_;
    std::string stamp_;  // of the names in nobody's use
    int64_t first_ = 0;  // milliseconds
};

}  // namespace koli::watch
