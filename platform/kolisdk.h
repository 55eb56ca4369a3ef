// libkolisdk: system services of the appliance.  Nothing here throws.
#pragma once

#include <stdint.h>

extern "C" {

/// Nonzero when a regular file (after following links) exists; `size`, when not null, then receives its
/// bytes.
int IsFileExist(const char* path, uint64_t* size);

/// Nonzero when a directory (after following links) exists.
int IsDirExist(const char* path);

/// Nonzero when anything exists at `path`.
int BlKLIBFileExist(const char* path);

/// What stands at a path, links followed.
enum KLIBPathKind {
    KLIB_PATH_UNKNOWN =
        -1,                // the look failed for a reason that says nothing: it may be there; errno tells why
    KLIB_PATH_ABSENT = 0,  // nothing, for certain (ENOENT, ENOTDIR)
    KLIB_PATH_FILE = 1,    // a regular file
    KLIB_PATH_DIRECTORY = 2,
    KLIB_PATH_OTHER = 3  // a FIFO, a device, ...
};

/// Looks at `path`.  Whoever removes something because it is gone asks this, as the other questions take a
/// failed look for absence.
int KLIBPathLook(const char* path);

/// Removes leading and trailing white space in place.
void StringTrim(char* text);

/// The pid in a pid file; 0 when it is missing, unreadable, not a positive decimal number, or not running.
int KLIBReadPidFile(const char* path);

/// Prints the program's name, version and purpose on standard output.
void KLIBCopyright(void);

/// Runs a program with up to four arguments (the first null ends them), without a shell, and waits for it.
/// A missing program is silent.  Returns its exit status, or -1.
int KLIBExec(const char* program, const char* arg1, const char* arg2, const char* arg3, const char* arg4);

/// Quotes `text` so that a shell hands its very bytes on as one word.  Returns 0, or nonzero when the result
/// does not fit into `out_size` bytes.
int KLIBEncShParam(const char* text, char* out, int out_size);

/// Copies the value of `key` in a key=value file.  `flags` is 0.  Returns the value's length, or a negative
/// value when the file cannot be read or does not hold the key (`buffer` is then empty): errno tells why, 0 =
/// it was read and does not hold the key.
int KLIBFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int flags);

/// Nonzero when the value of `key` in a key=value file equals `value`; errno as above when not.  `flags` is
/// 0.
int BlKOLIFileCheckKeyValue(const char* file, const char* key, const char* value, int flags);

/// Flags of KLIBFileGetLine as the callers pass them: match whole lines first, then lines that begin with the
/// key.
enum { KLIB_LINE_MATCH = 0x404 };

/// Copies the line of `file` that equals `key`, else the first that begins with it, without its newline.
/// Positive when one was found, 0 when none, negative when the file cannot be read.
int KLIBFileGetLine(const char* file, const char* key, char* buffer, int size, int flags);

/// Writes an event of the appliance's log catalogue to the system log, with four text arguments.
int KOLILogSet1(int category, int level, unsigned event, const char* arg1, const char* arg2, const char* arg3,
                const char* arg4);

}  // extern "C"
