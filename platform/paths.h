// The fixed paths of the appliance: where the daemon meets its neighbours.
#pragma once

#include <cstddef>

namespace koli::paths {

inline constexpr const char kPidFile[] = "/var/run/koliindexd.pid";       // own pid, decimal, no newline
inline constexpr const char kQueue[] = "/var/spool/koli_indexing_queue";  // live request queue
inline constexpr size_t kQueueLineSize = 4112;  // bytes of a request line's buffer, terminator included
inline constexpr const char kBatch[] = "/var/spool/koli_indexing_queue.tmp";  // the batch being processed
inline constexpr const char kState[] = "/var/run/koliindexd.state";           // tells of a kept batch
inline constexpr const char kReading[] = "/var/run/koliindexd.reading";       // which file is being read
inline constexpr const char kProgress[] = "/var/run/koliindexd.progress";     // how far the daemon has come
inline constexpr const char kWatchers[] = "/var/run/koliindexd-watch";        // folder: what is watched
inline constexpr const char kQueueService[] = "/var/run/koliindexd.queue";    // takes requests from a group
inline constexpr const char kDefaults[] = "/etc.defaults/koliinfo.conf";      // feature switches
inline constexpr const char kConfig[] = "/etc/koliinfo.conf";                 // settings of this machine
inline constexpr const char kMusicServerPid[] = "/var/run/mt-daapd.pid";      // SIGHUP: tables changed
inline constexpr const char kMediaServerPid[] = "/var/run/dms.pid";           // SIGUSR1: a batch is done
inline constexpr const char kThumbDaemonPid[] = "/var/run/kolimkthumbd.pid";  // SIGUSR1: queue has entries
inline constexpr const char kFlvDaemonPid[] = "/var/run/kolimkflvd.pid";      // SIGUSR1: queue has entries
inline constexpr const char kThumbQueue[] = "/var/spool/thumb_create.queue";  // one directory per line
inline constexpr const char kFlvQueue[] = "/var/spool/flv_create.queue";      // one path per line
inline constexpr const char kMusicShare[] = "/var/services/music";  // links to the shares' directories
inline constexpr const char kVideoShare[] = "/var/services/video";
inline constexpr const char kPhotoShare[] = "/var/services/photo";
inline constexpr const char kFlvConverter[] = "/usr/koli/bin/koliflvconv";  // run as: koliflvconv -f PATH

}  // namespace koli::paths
