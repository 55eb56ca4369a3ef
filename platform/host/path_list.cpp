// Lists of paths taken from a result set.
#include <cstdlib>
#include <cstring>

#include "platform/kolidb.h"

extern "C" {

PhotoPathList* PhotoPathDBGet(KOLIDBRows* rows) {
    if (rows == nullptr) return nullptr;
    PhotoPathList* list = nullptr;
    PhotoPathList** end = &list;
    for (int row = -1; KOLIDBFetchRow(rows->result, &row) == 0;) {
        const char* path = KOLIDBFetchField(rows->result, row, "path");
        if (path == nullptr) break;  // the column was not selected
        auto* node = static_cast<PhotoPathList*>(calloc(1, sizeof(PhotoPathList)));
        if (node != nullptr) {
            *end = node;
            end = &node->next;
            node->path = strdup(path);
        }
        if (node == nullptr || node->path == nullptr) {
            FreePhotoPathList(list);
            return nullptr;
        }
    }
    return list;
}

void FreePhotoPathList(PhotoPathList* list) {
    while (list != nullptr) {
        PhotoPathList* const next = list->next;
        free(list->path);
        free(list);
        list = next;
    }
}

}  // extern "C"
