// The reader of damaged databases on arbitrary bytes: every page, every record, every list it follows.
#include <cstdlib>

#include "fuzz/memory_file.h"
#include "platform/host/sqlite/page_records.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string error;
    const auto file = koli::host::PageFile::Open(koli::test::MemoryFile(data, size), &error);
    if (file == nullptr) return 0;
    if (file->UnusedPages().size() > size_t{file->page_count()} + 1) abort();
    for (uint32_t number = 0; number <= file->page_count() && number < 16; ++number) {
        const koli::host::TreePage page(*file, number);
        page.Children();
        koli::host::PageRecord record;
        for (uint32_t cell = 0; page.HasRecords() && cell < page.cells(); ++cell)
            page.Record(cell, &record);
    }
    return 0;
}
