/*
 * The whole system SDK: every family's header.
 *
 * Conventions, stated once for every family:
 *
 * Results. Functions return 0 on success (or a count, or 1 for a successful settings-file
 * setter) and -1 on failure; functions returning a pointer return NULL on failure. Look-ups
 * return 1 for found, 0 for absent (with ERR_KEY_NOT_FOUND, 0x2000, where a code applies) and
 * -1 for failure. Lengths returned by getters include the terminating NUL. A caller's buffer
 * that is too small is an error (ERR_NOT_ENOUGH_MEMORY, 0x0100), never a truncated copy. A null
 * or out-of-range argument fails at once with ERR_BAD_PARAMETERS (0x0D00).
 *
 * Names. KOVA... and KLIB... are the families; a prefix before the family tells the result: Bl
 * a boolean (1 or 0), Sz a string, Psl a string list, Psh a string hash, Err an error-code
 * result, pf a stream. An I after the family prefix (KLIBISzListFind) marks a helper that other
 * families use and applications normally do not.
 *
 * The error state. Every failure records a code (a message index times 256: rgszErrMsg[code >>
 * 8] is its text), the source file and the line of the failure, per process (KLIBErrGet,
 * KOVAErrorGetFile, KOVAErrorGetLine). Success leaves the state as it was: read it only after a
 * failure.
 *
 * Growth and ownership. A function that may grow a string list or hash takes the address of the
 * caller's pointer and may move the block. Every record a function allocates has its matching
 * ...Free (KLIBSzListFree, KLIBSzHashFree, KOVABDbFree); plain buffers handed out are released
 * with free. Buffers given as a pointer to a heap pointer and a capacity (KOVACheckAndRealloc)
 * may be grown and stay the caller's.
 *
 * Files and paths. Every absolute path that the library itself names resolves under the
 * directory in the environment variable KOVA_ROOT (unset or empty: "/"); paths given by the
 * caller are used as given. Settings files are rewritten through a temporary file and a rename,
 * so readers see the old or the new file; writers serialise themselves with ErrKLIBFileLock.
 *
 * Threads. Nothing here is thread-safe beyond the work of one call: the error state, the lock
 * table and the open caches are per process.
 */
#ifndef KOVASDK_KOVASDK_H
#define KOVASDK_KOVASDK_H

#include "bdb.h"
#include "disk.h"
#include "error.h"
#include "file.h"
#include "group.h"
#include "hash.h"
#include "kstring.h"
#include "list.h"
#include "log.h"
#include "partition.h"
#include "proc.h"
#include "raid.h"
#include "share.h"
#include "socket.h"
#include "sysbkp.h"
#include "unicode.h"
#include "user.h"
#include "volume.h"

#endif /* KOVASDK_KOVASDK_H */
