/*
 * Processes: running helper programs and daemons, finding and signalling processes by name,
 * pid files, shell-argument escaping, the file-service connection limit, and the registry of
 * running long operations shared by all processes.
 *
 * Process ids are plain ints. Results follow the SDK's rule: 0 (or a count, or a pid) on
 * success, -1 with the error code set on failure; Bl... functions return 1 or 0.
 */
#ifndef KOVASDK_PROC_H
#define KOVASDK_PROC_H

#include "export.h"

KOVA_BEGIN_DECLS

/* Running programs. KLIBExec and KLIBBackgroundExec take up to four arguments; the list ends at
 * the first null. Children get standard input, output and error on /dev/null. */
/* Runs the program in a new session with a cleared environment (KOVA_ROOT alone is kept) in "/"
 * and waits: its exit code (255 when it could not be run); -1. */
KOVA_API int KLIBExec(const char *szPath, const char *szArg1, const char *szArg2,
                      const char *szArg3, const char *szArg4);
/* Starts the program and returns its pid at once, never waiting for it; -1. */
KOVA_API int KLIBBackgroundExec(const char *szPath, const char *szArg1, const char *szArg2,
                                const char *szArg3, const char *szArg4);
/* execv in a child that keeps the caller's environment and lock files: the exit code with
 * fWait, else 0 at once; -1. */
KOVA_API int KLIBExecv(const char *szPath, char *const rgszArgv[], int fWait);
/* 0 for a null command, else the result of system(). */
KOVA_API int KLIBSystem(const char *szCommand);

/* Finding and signalling processes whose "ps -awx" line matches a grep pattern. KLIBPs stores
 * at most cMax pids but returns the number of matches. A pattern holding a single quote or any
 * control character (a line feed would make grep match by a second pattern) is refused with
 * ERR_BAD_PARAMETERS, by KLIBIKill too. */
KOVA_API int KLIBPs(const char *szPattern, int *rgPid, int cMax);
/* 1 when KLIBPs finds the pattern, else 0. */
KOVA_API int BlKLIBIIsProcAlive(const char *szPattern);
/* 1 when the process listing's first line for the name contains it, else 0. */
KOVA_API int BlProcessIsAlive(const char *szName);
/* SIGTERM (SIGKILL with fForce) to every match, then SIGKILL to survivors: the number signalled
 * in the first pass; -1. */
KOVA_API int KLIBIKill(const char *szPattern, int fForce);

/* Pid files hold the pid as "%u\n". */
/* The pid of the file's first line; 0 when it holds no number in 1..INT_MAX (no wrap-around);
 * -1 when it cannot be read or is not a regular file. */
KOVA_API int KLIBReadPidFile(const char *szPath);
/* Writes this process's pid; never through a symlink, FIFO or device at the path. 0; -1. */
KOVA_API int KOVAProcPidFileCreate(const char *szPath);
/* 1 when kill(pid, 0) succeeds or fails with EPERM, else 0. */
KOVA_API int BlKLIBProcAlive(int pid);
/* 1 when the file's pid is at least 1 and kill(pid, 0) succeeds (EPERM: 0), else 0. */
KOVA_API int KLIBProcAliveByPidFile(const char *szPath);

/* Escapes every byte of szIn so that the result stands unquoted as one shell word: 0; -1 with
 * ERR_NOT_ENOUGH_MEMORY when cbOut is too small. */
KOVA_API int KLIBEncShParam(const char *szIn, char *szOut, int cbOut);

/* A lock file held by an open descriptor, waited for in 200 ms steps taken from *pmsBudget.
 * Returns the descriptor, -2 when the budget ran out, -1 on failure. */
KOVA_API int GetExclusiveFileLock(const char *szPath, int *pmsBudget);
/* Closes the descriptor: the result of close(). */
KOVA_API int ReleaseExclusiveFileLock(int fd);

/* File-service connections (SMB, AFP, FTP) and the login limit "maxservices". */
/* 0 with the number of connections in *pnCount; -1. */
KOVA_API int KLIBConnectionCountGet(int *pnCount);
/* The current count when one more connection is allowed under "maxservices"; -1. */
KOVA_API int KLIBConnectionCountLogin(int timeout, int fLogin);

/* SMB connections: the smbd processes serving a logged-in user (all of them, or those of one
 * user of the account file). The pid functions store at most cMax pids and return the number
 * found; KOVADelConnOfSmb ends them with SIGTERM (szUser null: every connection) and returns
 * how many it signalled. */
KOVA_API int KOVAGetAllConnPidOfSmb(int *rgPid, int cMax);
KOVA_API int KOVAGetConnPidOfSmb(const char *szUser, int *rgPid, int cMax);
KOVA_API int KOVADelConnOfSmb(const char *szUser);

/* Operation registry: long administrative operations announce themselves so that conflicting
 * ones are refused or waited for. */
#define KOVA_OP_NONE 0
#define KOVA_OP_HOSTNAME 1
#define KOVA_OP_NETWORK 2
#define KOVA_OP_DATETIME 3
#define KOVA_OP_LANGUAGE 4
#define KOVA_OP_NOTIFY 5
#define KOVA_OP_CODEPAGE 6
#define KOVA_OP_ACCOUNT 7
#define KOVA_OP_GROUP 8
#define KOVA_OP_QUOTA 9
#define KOVA_OP_HOME 10
#define KOVA_OP_SHARE 11
#define KOVA_OP_RIGHT 12
#define KOVA_OP_NFS 13
#define KOVA_OP_DEFOPT 14
#define KOVA_OP_WINDOWS 15
#define KOVA_OP_SYNCPDC 16
#define KOVA_OP_UNIX 17
#define KOVA_OP_APPLE 18
#define KOVA_OP_NOVELL 19
#define KOVA_OP_HTTP 20
#define KOVA_OP_FTP 21
#define KOVA_OP_TELNET 22
#define KOVA_OP_VOLUME 23
#define KOVA_OP_SNMP 24
#define KOVA_OP_S2S 25
#define KOVA_OP_UPS 26
#define KOVA_OP_LED 27
#define KOVA_OP_DISKCACHE 28
#define KOVA_OP_SNAPSHOT 29
#define KOVA_OP_BACKUP 30
#define KOVA_OP_RESTORE 31
#define KOVA_OP_TAPEBACKUP 32
#define KOVA_OP_TAPERESTORE 33
#define KOVA_OP_INIT 34
#define KOVA_OP_DEFAULT 35
#define KOVA_OP_PATCH 36
#define KOVA_OP_UPDATE 37
#define KOVA_OP_IRON 38
#define KOVA_OP_END 39 /* ends the table */

/* Flags of KOVAOperationRegister. */
#define KOVA_OP_FLAG_TEST_ONLY 0x1 /* check for conflicts, do not register */
#define KOVA_OP_FLAG_SOFT_PASS 0x2 /* soft conflicts do not stop the operation */

/* 0 registered (or free to run), 1 hard conflicts, 2 soft conflicts (their ids in rgConflict,
 * at most *pcConflict of them; *pcConflict becomes their number), -1 failure. */
KOVA_API int KOVAOperationRegister(int op, int flags, int *rgConflict, int *pcConflict,
                                   int msBudget);
/* Hands the caller's registration to another pid, or drops it: 0; -2 when the caller has not
 * registered op; -1. */
KOVA_API int KOVAOperationTransfer(int op, int pid);
KOVA_API int KOVAOperationUnregister(int op);
/* The operation's name, or "" for an unknown id. */
KOVA_API const char *KOVAOperationGetName(int op);

KOVA_END_DECLS

#endif /* KOVASDK_PROC_H */
