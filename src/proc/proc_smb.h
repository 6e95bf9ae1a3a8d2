// The SMB connection functions' common part: which smbd processes serve a logged-in user.
//
// The SMB masters run as root; a serving smbd takes on the identity of the user it serves once
// the session is set up. So a connection is a process named "smbd" whose effective uid is not
// 0, and the user's connections are those whose effective uid is the user's uid in
// "/etc/passwd".
#pragma once

#include "proc/proc_internal.h"

namespace kova::proc {

// The uid of a user of the account file; -1 with ERR_NO_SUCH_USER (or ERR_OPEN_FAILED).
long smb_user_uid(const char *user);

// Stores up to max pids of the connections of uid (-1: every user) in process-table order and
// returns how many there are; -1 if the process table could not be listed.
int smb_connections(long uid, int *pids, int max);

}  // namespace kova::proc
