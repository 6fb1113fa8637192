// The service accounts of the board, with the distribution's SSH daemon in place of the board's stub.
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

// Returns the path of a file of the unpacked openssh-server package. Throws when the package is missing.
std::string from_package(const std::string &path);

// Puts the daemon and a host key on the board.
void install_daemon();

// Makes a key and authorises it for the privileged account.
void authorise_key();

// The daemon's view of a configuration: the verdict of its test mode, and the effective value of an option for a login
// of `user` ("" for a configuration that it refuses).
bool daemon_accepts(const std::string &config);
std::string daemon_value(const std::string &config, const std::string &option, const std::string &user);

// Returns the hash of an account in the user database, which begins with "!" while the password is locked.
std::string password_hash(const std::string &user);

// Installs a shell script as a program of the board.
void put_program(const std::string &path, const std::string &script);

// Replaces the first occurrence. Throws if there is none.
std::string with(std::string text, const std::string &old_part, const std::string &new_part);

bool exists(const std::string &path);

// Mode, owner and group that a new file does not get by itself, and those of a file.
constexpr const char *kOwnAttributes = "640 12:34";
void give_own_attributes(const std::string &path);
std::string attributes(const std::string &path);

// Reports whether another process could lock the file now.
bool is_unlocked(const std::string &path);

} // namespace testing_board
