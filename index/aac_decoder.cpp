#include "index/aac_decoder.h"

namespace koli {

const char* const kAacDecoder = KOLI_FAAD_PATH;

}  // namespace koli
