#include "base/log.h"

namespace koli {

LogSink log_sink = nullptr;

}  // namespace koli
