// The fast searches for frames and variable-bit-rate headers against the byte-wise ones.
#include <cstdlib>

#include "tests/fake_platform.h"
#include "tests/mpeg_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::test::fake.log.clear();
    // The first byte stretches some files, so that they span several buffers.
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (size > 0 && data[0] % 8 == 7) bytes.insert(size / 2, data[0] * 80U, size % 2 != 0 ? '\0' : 'a');
    if (!koli::test::AgreesWithModel(bytes, 0)) abort();
    return 0;
}
