// kovactl's subcommands: one function per family, each thin (parse, call the SDK, print).
#pragma once

namespace kovactl {

struct Command {
    const char *name;
    const char *usage;
    int (*run)(int argc, char **argv);  // argv[0] is the subcommand's name
};

int cmd_bdb(int argc, char **argv);
int cmd_conf(int argc, char **argv);
int cmd_error(int argc, char **argv);
int cmd_list(int argc, char **argv);
int cmd_hash(int argc, char **argv);
int cmd_str(int argc, char **argv);
int cmd_ps(int argc, char **argv);
int cmd_ops(int argc, char **argv);
int cmd_user(int argc, char **argv);
int cmd_group(int argc, char **argv);
int cmd_share(int argc, char **argv);
int cmd_disk(int argc, char **argv);
int cmd_raid(int argc, char **argv);
int cmd_part(int argc, char **argv);
int cmd_volume(int argc, char **argv);
int cmd_log(int argc, char **argv);
int cmd_discover(int argc, char **argv);
int cmd_net(int argc, char **argv);
int cmd_backup(int argc, char **argv);

// Prints "kovactl: what: ERR_NAME (0xCODE) at file:line" for the SDK's last error; returns 1.
int report_failure(const char *what);

}  // namespace kovactl
