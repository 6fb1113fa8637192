// The service accounts of the board, with the distribution's own SSH daemon in the place of the board's stand-in.
#pragma once

#include <string>
#include <vector>

#include "support/board_file.h"
#include "support/program.h"

namespace testing_board {

constexpr const char *kLiveConfig = "/etc/ssh/sshd_config";
constexpr const char *kPersistentConfig = "/ffs/run/etc/ssh/p_sshd_config";
constexpr const char *kFlagFile = "/ffs/run/etc/p_restrict_root_access";
constexpr const char *kPrivilegedKeys = "/user/toor4qrx/.ssh/authorized_keys";
constexpr const char *kPamFile = "/etc/pam.d/common-password";

// A file of the unpacked openssh-server package. Throws when the package is not there.
std::string from_package(const std::string &path);

// Puts the daemon and a host key on the board.
void install_daemon();

// Makes a key and lets the privileged account in with it.
void authorise_key();

// What the daemon makes of a configuration: its test mode's verdict, and the value it ends up with for an option (""
// for a configuration that it refuses). `user` is who logs in.
bool daemon_accepts(const std::string &config);
std::string daemon_value(const std::string &config, const std::string &option, const std::string &user);

// The hash that the user database has for an account; begins with "!" while the password is locked.
std::string password_hash(const std::string &user);

// Makes a program of the board out of a shell script.
void put_program(const std::string &path, const std::string &script);

// Replaces the first occurrence. Throws when there is none.
std::string with(std::string text, const std::string &old_part, const std::string &new_part);

bool exists(const std::string &path);

// Mode, owner and group that no file gets by itself, and those that a file has.
constexpr const char *kOwnAttributes = "640 12:34";
void give_own_attributes(const std::string &path);
std::string attributes(const std::string &path);

// Whether another process could lock the file now.
bool is_unlocked(const std::string &path);

} // namespace testing_board
