#include "ddalctl/report.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "ddalctl/command.h"
#include "ddalctl/failure.h"
#include "ddalctl/hint.h"

namespace ddalctl {

using Json = nlohmann::ordered_json;

namespace {

// RFC 3339, with nanoseconds.
std::string time_text_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char text[48];
    const size_t n = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + n, sizeof text - n, ".%09ldZ", now.tv_nsec);
    return text;
}

} // namespace

// The JSON form of a report.
struct Document {
    static Json of(const Report &report)
    {
        Json document = Json::object();
        for (const Report::Entry &entry : report.entries_)
            document[entry.name] = entry.is_table ? of_table(entry) : of_value(entry.value);
        return document;
    }

    static Json of_table(const Report::Entry &table)
    {
        Json rows = Json::array();
        for (const auto &row : table.rows)
            rows.push_back(of(*row));
        return rows;
    }

    static Json of_value(const Report::Value &value)
    {
        return std::visit([](const auto &held) { return Json(held); }, value);
    }

    static constexpr int kOneLine = -1;

    static void print(FILE *out, const Json &document, int indent = 2)
    {
        // Texts come from the board: replace bytes that are not UTF-8, so that the document stays valid.
        fprintf(out, "%s\n", document.dump(indent, ' ', false, Json::error_handler_t::replace).c_str());
        fflush(out);
    }

    static void print_event(const std::string &name, const Report &values)
    {
        Json event = {{"time", time_text_now()}, {"event", name}};
        event.update(of(values));
        print(stdout, event, kOneLine);
    }
};

std::string hex(uint64_t value, int digits)
{
    char text[24];
    snprintf(text, sizeof text, "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

void Report::add(const std::string &name, const Value &value, const std::string &text)
{
    entries_.push_back({name, value, text, false, {}, false});
}

void Report::add_hex(const std::string &name, uint64_t value, int digits)
{
    add(name, value, hex(value, digits));
}

void Report::add_to_document(const std::string &name, const Value &value)
{
    entries_.push_back({name, value, "", true, {}, false});
}

Report::Entry &Report::table_named(const std::string &name)
{
    const auto table =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry &entry) { return entry.name == name; });
    return table != entries_.end() ? *table : entries_.emplace_back(Entry{name, nullptr, "", false, {}, true});
}

void Report::table(const std::string &name)
{
    table_named(name);
}

Report &Report::row(const std::string &name)
{
    Entry &table = table_named(name);
    table.rows.push_back(std::make_unique<Report>(json_));
    return *table.rows.back();
}

void Report::line(const std::string &text) const
{
    if (json_)
        return;
    printf("%s\n", text.c_str());
    fflush(stdout);
}

void Report::event(const std::string &name, const std::string &text, const std::function<void(Report &)> &fill) const
{
    if (!json_)
        return line(text);
    Report values(true);
    fill(values);
    Document::print_event(name, values);
}

void Report::print(FILE *out) const
{
    if (json_ && !last_event_.empty()) {
        if (!entries_.empty())
            Document::print_event(last_event_, *this);
    } else if (json_)
        Document::print(out, Document::of(*this));
    else
        print_text(out);
}

void Report::print_text(FILE *out) const
{
    size_t width = 0;
    size_t values = 0;
    for (const Entry &entry : entries_) {
        if (!entry.hidden && !entry.is_table) {
            width = std::max(width, entry.name.size());
            values++;
        }
    }
    for (const Entry &entry : entries_) {
        if (entry.is_table)
            print_table(out, entry);
        else if (!entry.hidden && values == 1)
            fprintf(out, "%s\n", entry.text.c_str());
        else if (!entry.hidden)
            fprintf(out, "%-*s  %s\n", static_cast<int>(width), entry.name.c_str(), entry.text.c_str());
    }
}

void Report::print_table(FILE *out, const Entry &table)
{
    std::vector<std::vector<std::string>> lines;
    for (const auto &row : table.rows) {
        std::vector<std::string> names;
        std::vector<std::string> cells;
        for (const Entry &entry : row->entries_) {
            if (entry.hidden)
                continue;
            names.push_back(entry.name);
            cells.push_back(entry.text);
        }
        if (lines.empty())
            lines.push_back(names);
        lines.push_back(cells);
    }

    std::vector<size_t> widths;
    for (const auto &line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (size_t i = 0; i < line.size(); i++)
            widths[i] = std::max(widths[i], line[i].size());
    }
    for (const auto &line : lines) {
        for (size_t i = 0; i + 1 < line.size(); i++)
            fprintf(out, "%-*s  ", static_cast<int>(widths[i]), line[i].c_str());
        fprintf(out, "%s\n", line.empty() ? "" : line.back().c_str());
    }
}

namespace {

// What failed, in the words of the command's help: "cannot mount a file system at its place below /ffs".
std::string message_of(const Failure &failure, const Command *command)
{
    if (!failure.is_cause() || !command)
        return failure.what();
    const std::string summary = command->summary;
    return "cannot " + summary.substr(0, summary.find_first_of(",;("));
}

// The cause behind a message that the command gave itself.
std::string reason_of(const Failure &failure)
{
    if (failure.is_cause())
        return failure.what();
    if (failure.status() == kWrongUse)
        return "";
    if (failure.evidence().error != 0)
        return strerror(failure.evidence().error);
    return text_without_access(failure.code(), failure.evidence());
}

Json text_or_null(const std::string &text)
{
    return text.empty() ? Json(nullptr) : Json(text);
}

void print_failure_text(const Failure &failure, const std::string &name, const Command *command,
                        const std::string &hint)
{
    const std::string code = name_of_code(failure.code());
    const std::string reason = reason_of(failure);
    std::string line = name + ": " + message_of(failure, command);
    if (!reason.empty() && !line.ends_with(reason))
        line += ": " + reason;
    if (failure.status() == kOperationFailed)
        line += " (" + std::to_string(failure.code()) + (code.empty() ? "" : ", " + code) + ")";
    fprintf(stderr, "%s\n", line.c_str());
    if (failure.status() == kWrongUse)
        return;
    const Evidence &evidence = failure.evidence();
    if (!evidence.path.empty())
        fprintf(stderr, "  path: %s\n", evidence.path.c_str());
    for (const std::string &logged : evidence.lines)
        fprintf(stderr, "  log:  %s\n", logged.c_str());
    if (!hint.empty())
        fprintf(stderr, "  next: %s\n", hint.c_str());
}

} // namespace

void print_failure(const Failure &failure, const std::string &name, const Command *command, bool json)
{
    const std::string words = name.substr(std::min(name.size(), strlen("ddalctl ")));
    const std::string hint = hint_for(words, failure);
    if (!json)
        return print_failure_text(failure, name, command, hint);
    const Evidence &evidence = failure.evidence();
    const Json error = {{"code", failure.code()},
                        {"name", text_or_null(name_of_code(failure.code()))},
                        {"message", message_of(failure, command)},
                        {"reason", text_or_null(reason_of(failure))},
                        {"operation", text_or_null(evidence.operation)},
                        {"path", text_or_null(evidence.path)},
                        {"log", evidence.lines},
                        {"hint", text_or_null(hint)}};
    Document::print(stdout, Json{{"error", error}}, Document::kOneLine);
}

void print_help(const std::string &text, bool json)
{
    if (json)
        Document::print(stdout, Json{{"help", text}});
    else
        fputs(text.c_str(), stdout);
}

} // namespace ddalctl
