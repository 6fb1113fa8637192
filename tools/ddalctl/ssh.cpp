// ddalctl ssh: the SSH daemon's options, banner and keys.
#include <ddal/auth.h>
#include <ddal/sshd.h>

#include <iostream>
#include <iterator>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"

namespace ddalctl {

namespace {

constexpr Choice kKeyActions[] = {{"reset", 0}};
constexpr Choice kUsers[] = {{"toor4qrx", 0}, {"serviceuser", 1}};
constexpr Choice kOptions[] = {{"ClientAliveInterval", 0}, {"ClientAliveCountMax", 1}};
constexpr Argument kValues[] = {{"VALUE", Kind::number, "", false, 65535}, {"VALUE", Kind::number, "", false, 255, 1}};

void set(const Arguments &arguments, Report &)
{
    const uint32_t value = arguments.number_as(kValues[arguments.choice("NAME", kOptions)]);
    require(quietly([&] {
        return DDAL(ddal_sshd_set_parameter)(arguments.text("NAME").c_str(), std::to_string(value).c_str(),
                                             arguments.given("--persist") ? DDAL_SSHD_PERSIST : 0);
    }));
}

void banner(const Arguments &arguments, Report &)
{
    auto *const set_banner = DDAL(ddal_sshd_set_banner);
    const std::string text = arguments.given("TEXT") ? arguments.text("TEXT") + "\n"
                                                     : std::string(std::istreambuf_iterator<char>(std::cin), {});
    if (text.find('\0') != std::string::npos)
        throw WrongUse("the banner must be text without NUL bytes");
    require(set_banner(text.c_str()));
}

void restart(const Arguments &, Report &)
{
    require(quietly([&] { return DDAL(ddal_sshd_restart)(); }));
}

void keys(const Arguments &arguments, Report &)
{
    arguments.choice("ACTION", kKeyActions);
    arguments.choice("USER", kUsers);
    const std::string &user = arguments.text("USER");
    confirm(arguments, "Replace the authorized keys of " + user + " by those of the factory");
    require(DDAL(ddal_auth_reset_user_ssh_keys)(user.c_str()));
}

} // namespace

Family ssh_family()
{
    return {"ssh",
            "options, banner and keys of the SSH daemon",
            {
                {"set",
                 "set an option; the daemon applies it at its next restart",
                 {one_of<kOptions>("NAME", "ClientAliveInterval (0 to 65535 s) or ClientAliveCountMax (1 to 255)"),
                  {"VALUE", Kind::number, "the new value"},
                  {"--persist", Kind::flag, "keep the option after a restart of the board"}},
                 set},
                {"banner",
                 "set the text shown before a login",
                 {{"TEXT", Kind::text, "one line (default: everything on standard input)", true}},
                 banner},
                {"restart", "restart the daemon", {}, restart},
                {"keys",
                 "restore the factory's authorized keys of an account",
                 {one_of<kKeyActions>("ACTION", "reset"), one_of<kUsers>("USER", "toor4qrx or serviceuser"), kYes},
                 keys},
            }};
}

} // namespace ddalctl
