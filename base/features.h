// Process-wide switches: set once, before the first batch, from the appliance's defaults file, read
// everywhere.
#pragma once

namespace koli {

extern int support_vidora;  ///< 1 when the video side features are enabled
extern int support_photo;   ///< 1 when the photo library is enabled

}  // namespace koli
