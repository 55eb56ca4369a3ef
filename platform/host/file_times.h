// Times of files as the media store holds them.
#pragma once

#include <ctime>

namespace koli::host {

/// Writes local time, "%Y-%m-%d %H:%M:%S"; '' when it does not fit or the time has no calendar year.  A null
/// `text` is left alone.
void WriteLocalTime(time_t when, char* text, int size);

}  // namespace koli::host
