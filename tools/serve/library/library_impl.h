// What stands behind Library: the snapshot of this moment and the thread that makes the next one.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "tools/ctl/store_reader.h"
#include "tools/serve/library/library.h"
#include "tools/serve/library/page_rows.h"
#include "tools/serve/library/snapshot.h"

namespace koli::serve {

class Library::Impl {
  public:
    explicit Impl(ctl::Places places) : places_(std::move(places)) {}
    ~Impl() { Stop(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Start();
    void Stop();
    bool WaitUntilRead(int seconds) const;

    const ctl::Places& places() const { return places_; }
    std::shared_ptr<const Snapshot> Now() const;
    std::string Error() const;
    uint64_t Version() const;

  private:
    void Run();
    bool ReadOnce(std::string* mark);
    bool IsInStep(const std::string& mark, bool is_pause) const;
    void Read(const ctl::StoreReader& store);
    void Fail(const std::string& error);
    bool IsWanted() const;
    bool Wait(int seconds) const;

    const ctl::Places places_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::shared_ptr<const Snapshot> snapshot_ = std::make_shared<Snapshot>();
    std::string error_ = "the library has not been read yet";
    uint64_t version_ = 0;
    bool is_tried_ = false;  // to read it
    bool is_ending_ = false;
    std::thread thread_;
};

/// The rows of a list that are asked for: `make(value, &row)` fills one in, or returns false when it has gone
/// since.
template <typename Row, typename List, typename Make>
Piece<Row> PieceOf(const List& list, Span span, Make make) {
    Piece<Row> piece{.rows = {}, .from = span.from, .total = list.size()};
    const size_t begin = std::min(span.from, list.size());
    const size_t end = begin + std::min({span.count, kPieceMax, list.size() - begin});
    for (size_t i = begin; i < end; ++i) {
        Row row;
        if (make(list[i], &row)) piece.rows.push_back(std::move(row));
    }
    return piece;
}

/// Rows of files, read from the databases.
template <typename Row>
Piece<Row> FilePiece(const ctl::Places& places, const Snapshot& snapshot, FileKind kind, const Numbers& files,
                     Span span, bool (RowReader::*read)(const std::string&, Row*)) {
    PageRows rows(places);
    return PieceOf<Row>(files, span, [&](uint32_t file, Row* row) {
        return rows.is_open() && ((*rows).*read)(snapshot.PathOf(kind, file), row);
    });
}

/// The first file of that kind whose path is not before `path`; their number when there is none.
uint32_t FirstFileFrom(const Snapshot& snapshot, FileKind kind, const std::string& path);
/// The pictures that were taken in a month (of a Moment; 0 = unknown), the latest first.
Numbers PicturesOfMonthAt(const Snapshot& snapshot, uint32_t month);

/// The name of the photo album that a file lies in; "" for none.
std::string AlbumOfFile(const Snapshot& snapshot, const std::string& path);

Piece<AlbumRow> AlbumPiece(const Snapshot& snapshot, const Numbers& records, Span span);
Piece<NamedRow> ArtistPiece(const Snapshot& snapshot, const Numbers& artists, Span span);
Piece<PictureRow> PicturePiece(const ctl::Places& places, const Snapshot& snapshot, const Numbers& pictures,
                               Span span);
Piece<PhotoAlbumRow> PhotoAlbumPiece(const ctl::Places& places, const Snapshot& snapshot,
                                     const Numbers& albums, Span span);

}  // namespace koli::serve
