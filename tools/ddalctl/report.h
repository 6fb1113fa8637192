// The results of a command, independent of their form: lines for people or one JSON document.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace ddalctl {

class Failure;

class Report {
public:
    using Value = std::variant<std::nullptr_t, bool, uint64_t, int64_t, double, std::string, std::vector<uint64_t>,
                               std::vector<std::string>>;

    explicit Report(bool json) : json_(json) {}

    bool json() const { return json_; }

    // Adds a named value; `text` is its form for people.
    void add(const std::string &name, const Value &value, const std::string &text);
    void add(const std::string &name, const std::string &text) { add(name, text, text); }
    void add(const std::string &name, uint64_t value) { add(name, value, std::to_string(value)); }
    void add_signed(const std::string &name, int64_t value) { add(name, value, std::to_string(value)); }
    void add_hex(const std::string &name, uint64_t value, int digits = 8);
    void add_flag(const std::string &name, bool value) { add(name, value, value ? "yes" : "no"); }
    void add_missing(const std::string &name) { add(name, nullptr, "-"); }

    // Adds a value to the document only, because the text for people has it in another form.
    void add_to_document(const std::string &name, const Value &value);
    // Adds a value to the document only, because the user gave it.
    void repeat(const std::string &name, uint64_t value) { add_to_document(name, value); }

    // Adds a table, which may stay empty.
    void table(const std::string &name);
    // Adds a row to the table `name`.
    Report &row(const std::string &name);

    // Prints a line of a running command at once, for people only.
    void line(const std::string &text) const;

    // Makes the document one of JSON Lines: an object a line with "time" and "event". The values that are added to this
    // report become the last one, an event of this name.
    void lasts(const std::string &last_event) { last_event_ = last_event; }
    // Prints an event at once: a line for people, or an object with the values that `fill` adds.
    void event(const std::string &name, const std::string &text, const std::function<void(Report &)> &fill) const;

    // Sets the exit status of a command that ran and found what it looks for: 0 unless set.
    void set_status(int status) { status_ = status; }
    int status() const { return status_; }

    // Prints a single value alone, several values with their names, rows as a table.
    void print(FILE *out) const;

private:
    struct Entry {
        std::string name;
        Value value;
        std::string text;
        bool hidden = false;
        std::vector<std::unique_ptr<Report>> rows;
        bool is_table = false;
    };

    Entry &table_named(const std::string &name);
    void print_text(FILE *out) const;
    static void print_table(FILE *out, const Entry &table);

    bool json_;
    int status_ = 0;
    std::string last_event_; // empty: the document is one object
    std::vector<Entry> entries_;

    friend struct Document;
};

struct Command;

// Prints the failure of a command ("ddalctl ffs mount"; its row is NULL if none was found) on standard error: what
// failed and why in the first line, then path, log lines and the next step. As a document:
// {"error": {"code", "name", "message", "reason", "operation", "path", "log", "hint"}}, where a text may be null.
void print_failure(const Failure &failure, const std::string &name, const Command *command, bool json);

// Prints {"help": ...}, or the text itself.
void print_help(const std::string &text, bool json);

std::string hex(uint64_t value, int digits);

} // namespace ddalctl
