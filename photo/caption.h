// Captions: values that people enter for a picture or an album, handed over in an extended-attribute file of
// its path.  Each is read once; its file is gone afterwards.
#pragma once

#include <cstddef>

#include "base/file_reading.h"
#include "base/photo_record.h"
#include "photo/caption_removal.h"

namespace koli {

inline constexpr const char kTitleStream[] = "KOLIPHOTO:TITLE";
inline constexpr const char kDescriptionStream[] = "KOLIPHOTO:DESC";
inline constexpr const char kPublicStream[] = "KOLIPHOTO:PUBLIC";  // of an album: '1' for public

inline constexpr int kCaptionSize = 255;  // bytes of a caption, terminator included

inline constexpr int kCaptionPathSize = 4095;  // bytes of a caption file's path, terminator included

/// Keeps the caption files that are read for one picture or album until a row has taken their values.
class CaptionHold {
  public:
    /// What cannot be read is a trouble of `reading`, which must live as long.
    explicit CaptionHold(FileReading& reading) : reading_(reading) {}
    CaptionHold(const CaptionHold&) = delete;
    CaptionHold& operator=(const CaptionHold&) = delete;

    bool HasCaptions() const { return count_ > 0; }
    /// A caption is there, or may be, that could not be read.
    bool HasUnreadable() const { return has_unreadable_; }

    /// The row has been saved: the files go with the next CaptionRemovalsRun.  Otherwise they stay, for the
    /// next time.
    void Release();

  private:
    friend int CaptionRead(const char* path, const char* stream, char* buffer, int size, CaptionHold& hold);
    void Note(const char* caption_path, const CaptionIdentity& identity);
    void NoteUnreadable(int error);

    static constexpr size_t kMostCaptions = 2;  // a picture's title and description
    FileReading& reading_;
    char paths_[kMostCaptions][kCaptionPathSize];
    CaptionIdentity identities_[kMostCaptions];
    size_t count_ = 0;
    bool has_unreadable_ = false;
};

/// Removes the caption files whose rows are saved, once these are on the disk, and for good: a process killed
/// at any moment, or a power cut, leaves each value in at least one of the two places, and none comes back
/// behind a mark of the batch that is set after it.  Inside a unit of the photo database they wait for a
/// later call.  They stay when rows were lost, as the batch is repeated then, and when they are no longer
/// what was read: somebody has handed over a new caption.
void CaptionRemovalsRun();

/// The mark of a unit stands before the captions taken in it can go.  So the unit notes in the photo database
/// which ones these are, and a batch that is executed again recalls and removes them.
void CaptionRemovalsNote();
void CaptionRemovalsRecall();

/// Reads the first line, its newline included, of the caption file of (path, stream) into the `size` bytes at
/// `buffer`, cut at size - 1 bytes, and leaves the file to `hold`.  Returns 0 when
/// the line holds anything; -1 when not, when there is no such file or a request that waits is still to
/// rename what stands at `path` (silently; the file is kept), and on failure (logged; a link, and a file that
/// could not be read, is kept).
int CaptionRead(const char* path, const char* stream, char* buffer, int size, CaptionHold& hold);

/// Whether a title or a description is there for the picture.
bool CaptionWaits(const char* path);

/// Take the title or description that waits for the picture into its record.  Return 1 when there was one,
/// else 0 (the record is then unchanged).  A null argument is logged.
int CaptionTitleGet(const char* path, PhotoRecord* record, CaptionHold& hold);
int CaptionDescGet(const char* path, PhotoRecord* record, CaptionHold& hold);

}  // namespace koli
