// SQL texts as long as they need to be.
#pragma once

#include <cstdlib>
#include <memory>

#include "base/log.h"
#include "platform/kolidb.h"

namespace koli {

struct FreeText {
    void operator()(char* text) const { free(text); }
};

/// A text on the heap; null when it could not be made, which has been logged then in the name of the module
/// that asked ("... Failed to malloc(SIZE)" or "... Failed to escape condition.").
using SqlText = std::unique_ptr<char, FreeText>;

/// `text` for use between single quotes.
SqlText QuoteText(const char* text, LogSite site);

/// `text` for use between single quotes in a LIKE pattern: escaped for the quotes first, then for the
/// pattern.
SqlText LikeText(const char* text, LogSite site);

/// The format filled in, never cut.
SqlText FormatSql(LogSite site, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// The rows of a query, closed with their owner.
struct CloseRows {
    void operator()(KOLIDBRows* rows) const { PhotoInfoDBClose(rows); }
};
using SqlRows = std::unique_ptr<KOLIDBRows, CloseRows>;

/// A path list, freed with its owner.
struct FreePaths {
    void operator()(PhotoPathList* list) const { FreePhotoPathList(list); }
};
using PathList = std::unique_ptr<PhotoPathList, FreePaths>;

}  // namespace koli
