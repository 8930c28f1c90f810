/* The flat C interface of libvantu.
 *
 * Conventions:
 * - The header compiles as C and as C++; every function has C linkage and never throws, but for
 *   vantu_ThreadStart and vantu_SharedMemoryBeginData/EndData, as noted there.
 * - Handles are opaque `void*` values made by a create function; one destroy function of the
 *   subsystem deletes them and ignores a null handle.
 * - Status results: 0 for success, -1 for a bad handle or a too-small buffer; questions answer
 *   1 or 0.
 * - Narrow text is NUL-terminated; paths are read as VString reads a `const char*` (a
 *   byte-order mark decides the encoding, else the system code page, UTF-8 on most systems).
 *   Text read that way (paths, log names, the input of vantu_ToUTF16) that starts with the
 *   bytes FF FE is read as UTF-16 up to its first 0x0000 unit: the caller must then end it
 *   with two zero bytes at an even distance from the mark, as one NUL byte is not enough.
 * - UTF-16 text is `vantu_char16`: `wchar_t` on Windows, `char16_t` (in C, `uint16_t`)
 *   elsewhere, so a function named UTF-16 yields UTF-16 everywhere.
 * - Pointers other than those documented as "may be null" must not be null.
 */
#ifndef VANTU_FLAT_H
#define VANTU_FLAT_H

#include <stddef.h>
#include <stdint.h>

#include <vantu/Export.h>

#if defined(_WIN32)
typedef wchar_t vantu_char16;
#elif defined(__cplusplus)
typedef char16_t vantu_char16;
#else
typedef uint16_t vantu_char16;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- File utilities ------------------------------------------------------------------------ */

/* *crc = CRC-32 (zlib's) of the strlen(text) bytes of text; 0 for "". */
VANTU_API void vantu_GetCRC(const char* text, unsigned int* crc);
/* *crc = CRC-32 of `length` bytes. */
VANTU_API void vantu_GetCRCEx(const char* data, unsigned int length, unsigned int* crc);
/* *crc = CRC-32 of the file's content; 0 when the file is missing, unreadable, held open for
 * writing by another process, or empty. The size is read as a signed 32-bit value, so files of
 * 2 GiB or more are not summed correctly. */
VANTU_API void vantu_GetFileInfo(const char* path, unsigned int* crc);
/* 1 when the path names an existing regular file, else 0. */
VANTU_API int vantu_IsFile(const char* path);
/* 1 when the file exists, is not empty and no process holds it open for writing, else 0. */
VANTU_API int vantu_IsFileAvailable(const char* path);
/* The path's text as VPath stores it. The text stays valid until the next call of this function
 * on the same thread. */
VANTU_API const char* vantu_Path_CStr(const char* path);
/* Converts narrow text to NUL-terminated UTF-16 in out; unless `plain`, a first code unit 0xFFFE
 * precedes the text. The caller's buffer must be large enough: not checked. */
VANTU_API void vantu_ToUTF16(const char* text, vantu_char16* out, int plain);
/* Converts NUL-terminated UTF-16 text to NUL-terminated UTF-8 in out; with `withBom`, non-empty
 * text starts with EF BB BF. The caller's buffer must be large enough: not checked. */
VANTU_API void vantu_ToUTF8(const vantu_char16* text, char* out, int withBom);
/* A unique name: prefix (may be null) followed by the decimal count of 100-nanosecond units
 * since 1582-10-15 (UUID time). Two calls within one microsecond give the same name. 0 and the
 * name in out when it fits in `size` characters with its terminator; else -1, out untouched. */
VANTU_API int vantu_UniqueTempName(char* out, size_t size, const char* prefix);
/* The same name appended to the temporary folder ($TMPDIR, else /tmp/), in UTF-8. No file is
 * created. */
VANTU_API int vantu_UniqueTempFile(char* out, size_t size, const char* prefix);
/* vantu_UniqueTempFile in UTF-16; `size` counts code units. */
VANTU_API int vantu_UniqueTempWFile(vantu_char16* out, size_t size, const vantu_char16* prefix);

/* ---- Log ----------------------------------------------------------------------------------- */

/* Creates a log (a VLog), opens it at once (file created, banner written) and returns its
 * handle; NULL when it cannot be made. name and folder may be null (the executable's base name;
 * "<application data>/Tarvik Software/"). level is a POCO priority, 1 fatal to 8 trace; outside
 * 1..8 it is 3 (error). rotationUnit: -1 never, 0 daily, 1 weekly, 2 monthly, 3 hours, 4 days,
 * 5 weeks, 6 months, 7 bytes, 8 K, 9 M (others: days); a unit outside -1..9 or a count below 1
 * makes the count 1. archiveMode 1 names archives by timestamp, anything else by number.
 * purgeUnit 0 minutes, 1 hours, anything else days. makeCurrent non-zero makes it the current
 * log. */
VANTU_API void* vantu_CreateLogEx(const char* name, const char* folder, int level,
                                  int rotationCount, int rotationUnit, unsigned int archiveMode,
                                  unsigned int purgeCount, unsigned int purgeUnit, int makeCurrent);
/* vantu_CreateLogEx with makeCurrent = 1. */
VANTU_API void* vantu_CreateLog(const char* name, const char* folder, int level, int rotationCount,
                                int rotationUnit, unsigned int archiveMode, unsigned int purgeCount,
                                unsigned int purgeUnit);
/* Deletes the log *handle (every line logged before is written first) and sets *handle to
 * NULL; a null address or handle does nothing. A deleted current log stops being current. */
VANTU_API void vantu_DeleteLog(void** handle);
/* The current log's handle, or NULL. */
VANTU_API void* vantu_GetCurrentLog(void);
/* Logs text (may be null: nothing is logged) at a level code of this interface: 0 information,
 * 1 debug, 2 warning, 3 fatal, 4 error, 5 critical, 6 notice, 7 information, 8 trace; codes
 * above 8 mean error. -1 for a null handle, else 0. */
VANTU_API int vantu_LogMessage(void* handle, unsigned int level, const char* text);

/* ---- Hot folder ---------------------------------------------------------------------------- */

/* Called once per delivered entry with its path (UTF-8 bytes as the file system names them,
 * NUL-terminated; a sub-directory's ends in "/"), the path's length and the user data; the
 * result is ignored. Runs on a pool thread; all callbacks of the process are serialised. */
typedef int (*vantu_HotFolderCallback)(const char* path, int length, void* userData);

/* Flags of vantu_CreateHotFolderEx and vantu_ConfigHotFolder. Without FOLLOW_LINKS a symbolic
 * link whose target lies outside the folder is skipped; with it (for trusted folders) the target
 * is delivered under the link's own path, and deleting it deletes the link. */
#define VANTU_HOTFOLDER_ACTIVATE 1u      /* start at once (vantu_CreateHotFolderEx only) */
#define VANTU_HOTFOLDER_RECURSIVE 2u     /* descend into sub-directories */
#define VANTU_HOTFOLDER_GROUP_FOLDERS 4u /* deliver each sub-directory as one unit */
#define VANTU_HOTFOLDER_FOLLOW_LINKS 8u  /* deliver links that lead outside the folder */

/* vantu_CreateHotFolderEx with flags from activate and recursive; group folders off. */
VANTU_API void* vantu_CreateHotFolder(const char* path, unsigned int milliseconds, int activate,
                                      int recursive, vantu_HotFolderCallback callback,
                                      void* userData);
/* Creates a hot folder (a VHotfolder) on path, scanning every `milliseconds` once started; with
 * VANTU_HOTFOLDER_ACTIVATE the first scan follows one second later. NULL if it cannot be made. */
VANTU_API void* vantu_CreateHotFolderEx(const char* path, unsigned int milliseconds,
                                        unsigned int flags, vantu_HotFolderCallback callback,
                                        void* userData);
/* Sets the period and the recursive, group-folders and follow-links flags (the activate flag is
 * ignored). The period reaches the timer at the next activation. */
VANTU_API void vantu_ConfigHotFolder(void* handle, unsigned int milliseconds, unsigned int flags);
/* Non-zero: starts (on a running hot folder, only applies the period, keeping the list of
 * delivered entries). 0: stops and empties the list, so everything still there is delivered
 * again after the next activation. Waits for a scan in progress: never call it with 0 from the
 * hot folder's own callback. */
VANTU_API void vantu_ActivateHotFolder(void* handle, int activate);
/* Takes the entry with exactly this path (as the callback gave it) out of the list; with
 * keepFile 0 also deletes it (a directory with its content), following no link: a link is
 * deleted itself, and nothing below a link is deleted. A kept file that stays on the disk
 * is delivered again at the next scan: the list is the hot folder's only memory. May be called
 * from inside the callback. */
VANTU_API void vantu_DeleteFileFromHotFolder(void* handle, const char* path, int keepFile);
/* Deletes a hot folder (stopping it and waiting for a scan in progress); NULL does nothing.
 * Never call it from the hot folder's own callback. */
VANTU_API void vantu_DisposeHotFolder(void* handle);

/* As vantu_HotFolderCallback, with the handle of the hot folder that delivers the entry first,
 * so that one function can serve several hot folders (and call vantu_DeleteFileFromHotFolder on
 * the right one). */
typedef int (*vantu_HotFolderHandleCallback)(void* handle, const char* path, int length,
                                             void* userData);
/* Replaces the hot folder's callback (the one given at creation, or set before) by `callback`
 * with `userData` (which becomes the hot folder's user data); a NULL callback leaves none. A
 * running hot folder takes it from its next scan on, so create without
 * VANTU_HOTFOLDER_ACTIVATE, set it, then activate. NULL handle: nothing. */
VANTU_API void vantu_SetHotFolderHandleCallback(void* handle,
                                                vantu_HotFolderHandleCallback callback,
                                                void* userData);

/* ---- Events, named events, threads and shared memory --------------------------------------- */

/* A manual-reset event (a VEvent), not set; NULL when it cannot be made. Set, Reset and Wait do
 * nothing for a null handle (Wait returns at once). Wait blocks without time-out. */
VANTU_API void* vantu_EventCreate(void);
VANTU_API void vantu_EventSet(void* handle);
VANTU_API void vantu_EventReset(void* handle);
VANTU_API void vantu_EventWait(void* handle);
/* Deletes any handle of this section (event, named event, thread, shared memory); NULL does
 * nothing; the caller's variable is not cleared. The four destroy functions are one function. */
VANTU_API void vantu_EventDestroy(void* handle);

/* An auto-reset event shared between processes by name (a VNamedEvent); NULL when it cannot be
 * made. A null or empty name gives a handle whose Set and Wait do nothing. */
VANTU_API void* vantu_NamedEventCreate(const char* name);
/* Set and Wait do not check the handle: it must not be null. */
VANTU_API void vantu_NamedEventSet(void* handle);
VANTU_API void vantu_NamedEventWait(void* handle);
VANTU_API void vantu_NamedEventDestroy(void* handle);

/* A thread function; its argument is the thread's data. */
typedef void (*vantu_ThreadFunction)(uintptr_t data);
/* A thread (a VThread) that runs nothing yet; NULL when it cannot be made. */
VANTU_API void* vantu_ThreadCreate(void);
/* Starts function(data) on a new thread (a null function ends at once); a null handle does
 * nothing. Exception to the rule above: from C++, a thread whose function still runs or that the
 * system refuses throws VantuRuntimeException through this function, and a handle made without
 * its thread throws a plain int -1. */
VANTU_API void vantu_ThreadStart(void* handle, vantu_ThreadFunction function);
/* Set the data before the start: a function already called does not see a later value. */
VANTU_API void vantu_ThreadSetData(void* handle, uintptr_t data);
/* The data; 0 for a null handle and for a new thread. */
VANTU_API uintptr_t vantu_ThreadGetData(void* handle);
/* Does not wait for the function: a running thread keeps what it uses until it returns. */
VANTU_API void vantu_ThreadDestroy(void* handle);

/* A region of `size` bytes shared between processes by name (a VSharedMemory). The handle is
 * NULL only when memory runs out: a bad name or size gives a handle without a region. */
VANTU_API void* vantu_SharedMemoryCreate(const char* name, int size);
/* The region's first byte and one past its last; NULL for a null handle. Exception to the rule
 * above: for a handle without a region they throw a plain int -1, so call them only on a region
 * that was made. */
VANTU_API char* vantu_SharedMemoryBeginData(void* handle);
VANTU_API char* vantu_SharedMemoryEndData(void* handle);
VANTU_API void vantu_SharedMemoryDestroy(void* handle);

#ifdef __cplusplus
}
#endif

#endif /* VANTU_FLAT_H */
