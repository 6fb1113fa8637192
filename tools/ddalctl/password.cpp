// ddalctl password: passwords of the service accounts, and the password policy.
#include <ddal/auth.h>

#include <algorithm>

#include "ddalctl/confirm.h"
#include "ddalctl/failure.h"
#include "ddalctl/families.h"
#include "ddalctl/library.h"
#include "ddalctl/output_aside.h"
#include "ddalctl/report.h"
#include "ddalctl/secret.h"

namespace ddalctl {

namespace {

constexpr size_t kExplanationSize = 4096;
constexpr Choice kUsers[] = {{"toor4qrx", 0}, {"serviceuser", 1}};

// Joins the lines of the tool's explanation.
std::string one_line(std::string text)
{
    text.erase(text.find_last_not_of("\r\n ") + 1);
    for (size_t at; (at = text.find('\n')) != std::string::npos;)
        text.replace(at, 1, "; ");
    return text;
}

void set(const Arguments &arguments, Report &report)
{
    const std::string &user = arguments.text("USER");
    arguments.choice("USER", kUsers);
    auto *const set_password = DDAL(ddal_auth_set_user_password); // report a missing board before the prompt
    Secret password;
    password.read("New password of " + user);
    char text[kExplanationSize] = "";
    const int result = set_password(user.c_str(), password.text(), text, sizeof text);
    const std::string explanation = one_line(text);
    if (result != 0)
        throw explanation.empty() ? failure_of(result) : Failure(result, kOperationFailed, explanation);
    if (!explanation.empty())
        report.add("message", explanation);
}

void reset(const Arguments &arguments, Report &)
{
    const std::string &user = arguments.text("USER");
    arguments.choice("USER", kUsers);
    confirm(arguments, "Reset the password of " + user + " to the factory password");
    require(quietly([&] { return DDAL(ddal_auth_reset_user_password)(user.c_str()); }));
}

void history(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_auth_set_password_history_len)(arguments.number("LENGTH")));
}

void login_delay(const Arguments &arguments, Report &)
{
    require(DDAL(ddal_auth_set_login_faildelay)(arguments.number("DELAY")));
}

} // namespace

Family password_family()
{
    const Argument user = one_of<kUsers>("USER", "toor4qrx or serviceuser");
    return {"password",
            "passwords of the service accounts",
            {
                {"set", "set a password, read from the terminal or from standard input", {user}, set},
                {"reset", "restore the factory password", {user, kYes}, reset},
                {"history",
                 "set the number of earlier passwords that users may not reuse",
                 {{"LENGTH", Kind::number, "number of passwords; 0 also deletes the history"}},
                 history},
                {"login-delay",
                 "set the delay after a failed SSH login",
                 {{"DELAY", Kind::number, "delay as the system counts it; a value below 2000000 adds no delay"}},
                 login_delay},
            }};
}

} // namespace ddalctl
