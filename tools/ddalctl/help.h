// What the program tells about itself: topics, families and commands, for "ddalctl help" and the manual pages.
#pragma once

#include <string>
#include <vector>

#include "ddalctl/command.h"

namespace ddalctl {

struct Paragraph {
    std::string term; // "3" in a list of exit statuses; empty: the text stands alone
    std::string text;
};

struct Topic {
    const char *name; // "exit-status"
    const char *summary;
    std::vector<Paragraph> paragraphs;
};

const std::vector<Topic> &topics();

// "ddalctl help". It is not a family of the board's commands.
const Family &help_family();

// The families and "help"; the family or "help" of that name, or null.
std::vector<const Family *> families_and_help();
const Family *family_named(const std::string &name);

// "NUMBER", "TEXT", "FILE" or "HEX"; empty for a flag.
std::string value_name(const Argument &argument);

// "ddalctl fpga read ADDRESS [COUNT]"
std::string synopsis_of(const Family &family, const Command &command);

// "; did you mean "sfp"?" for an unknown word.
std::string family_suggestion(const std::string &word);

} // namespace ddalctl
