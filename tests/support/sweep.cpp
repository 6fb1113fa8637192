#include "support/sweep.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <unistd.h>

#include "support/board.h"
#include "support/log_watch.h"

namespace testing_board {

namespace {

constexpr unsigned kSweepRule = vboard::kMaxFaults - 1; // the last one, because tests use the first ones
constexpr unsigned kMostCalls = 3000;

std::string with_error(std::string line, int error)
{
    const size_t at = line.find("%m");
    return at == std::string::npos ? line : line.replace(at, 2, std::strerror(error));
}

std::vector<std::string> with_error(std::vector<std::string> lines, int error)
{
    for (std::string &line : lines)
        line = with_error(line, error);
    return lines;
}

// Discards standard error, which repeats the system log: a sweep would flood the terminal.
class QuietStandardError {
public:
    QuietStandardError() : saved_(fcntl(2, F_DUPFD_CLOEXEC, 800))
    {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, 2);
        close(null);
    }
    ~QuietStandardError() { end(); }
    void end()
    {
        if (saved_ < 0)
            return;
        dup2(saved_, 2);
        close(std::exchange(saved_, -1));
    }

private:
    int saved_;
};

class SweepRule {
public:
    SweepRule(const std::string &place, unsigned nth, unsigned variant) : rule_(board().page().faults[kSweepRule])
    {
        std::memset(static_cast<void *>(&rule_), 0, sizeof rule_);
        const size_t colon = place.find(':');
        place.copy(rule_.call, std::min(colon, sizeof rule_.call - 1));
        if (colon != std::string::npos)
            place.copy(rule_.path, sizeof rule_.path - 1, colon + 1);
        rule_.nth = nth;
        rule_.count = 1;
        rule_.error = -1;
        rule_.variant = variant;
        rule_.pid = static_cast<uint32_t>(getpid());
        rule_.armed.store(1);
        board().page().fault_count.fetch_add(1);
    }
    ~SweepRule() { disarm(); }
    void disarm()
    {
        if (rule_.armed.exchange(0))
            board().page().fault_count.fetch_sub(1);
    }
    bool fired() const { return rule_.fired.load() != 0; }
    bool exhausted() const { return rule_.exhausted != 0; }
    Injected injected() const
    {
        return {rule_.hit_call, rule_.hit_path, rule_.hit_error, rule_.hit_error == 0 && rule_.hit_limit == 1};
    }

private:
    vboard::FaultRule &rule_;
};

bool path_fits(const std::string &pattern, const std::string &path)
{
    if (!pattern.empty() && pattern.back() == '*')
        return path.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0;
    return pattern == path;
}

bool place_fits(const std::string &place, const Injected &injected)
{
    const size_t colon = place.find(':');
    if (colon != std::string::npos && !path_fits(place.substr(colon + 1), injected.path))
        return false;
    const std::string head = place.substr(0, colon);
    const size_t slash = head.find('/');
    if (head.substr(0, slash) != injected.call)
        return false;
    if (slash == std::string::npos)
        return injected.error != 0 || injected.end;
    const std::string how = head.substr(slash + 1);
    if (how == "short")
        return injected.error == 0 && !injected.end;
    if (how == "end")
        return injected.end;
    return injected.error != 0 && how == strerrorname_np(injected.error);
}

// Reports a failure that must not change the result of a careful caller.
bool is_survived(const Injected &injected)
{
    if (injected.error == 0)
        return !injected.end;
    if (injected.call == "close" || injected.call == "munmap")
        return true;
    return injected.error == EINTR;
}

bool line_fits(const std::string &pattern, const std::string &line)
{
    return path_fits(pattern, line);
}

bool same_outcome(const Outcome &expected, const Outcome &seen)
{
    if (expected.result != seen.result || expected.lines.size() != seen.lines.size())
        return false;
    for (size_t i = 0; i < seen.lines.size(); ++i)
        if (!line_fits(expected.lines[i], seen.lines[i]))
            return false;
    return true;
}

std::string text_of(const Outcome &outcome)
{
    std::string text = std::to_string(outcome.result);
    for (const std::string &line : outcome.lines)
        text += "\n    " + line;
    return text;
}

std::string text_of(const Injected &injected)
{
    const std::string how = injected.error ? strerrorname_np(injected.error) : injected.end ? "end" : "short";
    return injected.call + "/" + how + ":" + injected.path;
}

} // namespace

Expectation fails_with_errno(std::string line)
{
    return fails_with_errno_or(-EIO, {std::move(line)});
}

Expectation fails_with_errno_or(long when_zero, std::vector<std::string> lines)
{
    return [=](const Injected &injected, const Outcome &) {
        return Outcome{injected.error ? -injected.error : when_zero, with_error(lines, injected.error)};
    };
}

Expectation fails_through(std::string line, std::vector<std::string> callers, std::optional<long> result)
{
    return [=](const Injected &injected, const Outcome &success) {
        Outcome outcome = fails_with_errno(line)(injected, success);
        for (std::string caller : callers) {
            if (const size_t at = caller.find("%d"); at != std::string::npos)
                caller.replace(at, 2, std::to_string(-injected.error));
            outcome.lines.push_back(caller);
        }
        outcome.result = result.value_or(outcome.result);
        return outcome;
    };
}

Expectation fails(long result, std::vector<std::string> lines)
{
    return [=](const Injected &injected, const Outcome &) {
        return Outcome{result, with_error(lines, injected.error)};
    };
}

Expectation in_turn(std::vector<Expectation> expectations)
{
    const auto used = std::make_shared<size_t>(0);
    return [=](const Injected &injected, const Outcome &success) {
        const size_t turn = std::min((*used)++, expectations.size() - 1);
        return expectations[turn](injected, success);
    };
}

Expectation changes_nothing()
{
    return [](const Injected &, const Outcome &success) { return success; };
}

Sweep::Sweep(std::string name, std::function<long()> operation)
    : name_(std::move(name)), operation_(std::move(operation))
{
}

Sweep &Sweep::before(std::function<void()> prepare)
{
    prepare_ = std::move(prepare);
    return *this;
}

Sweep &Sweep::after(std::function<void(const Outcome &)> check)
{
    check_ = std::move(check);
    return *this;
}

Sweep &Sweep::succeeds(long result, std::vector<std::string> lines)
{
    success_ = {result, std::move(lines)};
    return *this;
}

Sweep &Sweep::when(std::string place, Expectation expectation)
{
    rows_.push_back({std::move(place), std::move(expectation)});
    return *this;
}

Sweep &Sweep::judged_by(std::function<void(const Injected &, const Outcome &)> judge)
{
    judge_ = std::move(judge);
    return *this;
}

Sweep &Sweep::watch(std::vector<std::string> folders)
{
    folders_ = std::move(folders);
    return *this;
}

Sweep &Sweep::only(std::string place)
{
    only_ = std::move(place);
    return *this;
}

Outcome Sweep::expected(const Injected &injected, bool *known) const
{
    *known = true;
    for (const Row &row : rows_)
        if (place_fits(row.place, injected))
            return row.expectation(injected, success_);
    *known = is_survived(injected);
    return success_;
}

void Sweep::compare(const std::string &where, const Injected *injected, const Outcome &seen) const
{
    bool known = true;
    const Outcome wanted = injected ? expected(*injected, &known) : success_;
    EXPECT_TRUE(known) << where << ": no row says what is to happen; seen: " << text_of(seen);
    if (known) {
        EXPECT_TRUE(same_outcome(wanted, seen))
            << where << "\n  expected: " << text_of(wanted) << "\n  seen:     " << text_of(seen);
    }
}

// Runs the operation once with one failure. Returns false if no call failed.
bool Sweep::try_point(unsigned nth, unsigned variant, bool *more_variants)
{
    prepare_();
    board(); // connects first, so that the connection does not count as left behind
    const Resources resources(folders_);
    LogWatch log;
    QuietStandardError quiet;
    SweepRule rule(only_, nth, variant);
    Outcome seen{operation_(), {}};
    rule.disarm();
    quiet.end();
    seen.lines = log.take();
    *more_variants = !rule.exhausted();
    const bool fired = rule.fired();
    const Injected injected = rule.injected();
    const std::string where =
        fired ? name_ + ", call " + std::to_string(nth) + ", " + text_of(injected) : name_ + " without a failure";
    if (judge_) {
        SCOPED_TRACE(where + "\n  seen: " + text_of(seen));
        judge_(fired ? injected : Injected{}, seen);
    } else {
        compare(where, fired ? &injected : nullptr, seen);
    }
    EXPECT_EQ(resources.difference(), "") << where;
    check_(seen);
    points_ += fired;
    return fired;
}

int Sweep::run()
{
    board(); // connects before the descriptors are first counted
    for (unsigned nth = 1; nth < kMostCalls; ++nth) {
        bool more = true;
        unsigned variant = 0;
        while (try_point(nth, variant, &more))
            ++variant;
        // The first variant of a call that was not reached shows that the operation makes fewer calls.
        if (variant == 0 && more)
            break;
    }
    EXPECT_GT(points_, 0) << name_ << ": the sweep found nothing to fail";
    std::cout << "sweep " << name_ << (only_.empty() ? "" : ", " + only_) << ": " << points_ << " points" << std::endl;
    return points_;
}

} // namespace testing_board
