// vboard: runs applications without hardware, on a board of files, models and a preload library.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

#include "cli/completion.h"
#include "cli/control_text.h"
#include "cli/explain.h"
#include "cli/launch.h"
#include "cli/manual.h"
#include "command_line/completion.h"
#include "daemon/board_file.h"

namespace {

namespace fs = std::filesystem;

void add_run(CLI::App &app, int &status)
{
    auto options = std::make_shared<vboard::RunOptions>();
    auto no_trace = std::make_shared<bool>(false);
    auto explain = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    CLI::App *run = app.add_subcommand("run", "Run a program on a virtual board");
    run->add_option("--board", options->board,
                    "Board directory, created if missing (default: a new one, removed afterwards)");
    run->add_option("--type", options->type, "Type of a new board; \"vboard types\" lists them")
        ->default_str(vboard::kDefaultType);
    run->add_option("--speed", options->speed, "Seconds of the board that pass in one second")
        ->check(CLI::Range(1, 1000))
        ->default_str("1");
    run->add_option("--preload", options->preload, "Library to load in front of the board's own");
    run->add_option("--runtime", options->runtime,
                    "Library that programs linked with it must load first, such as a sanitizer runtime");
    run->add_option("--writable", options->writable, "Additional folder of this machine that the program may write to");
    run->add_option("--emulator", options->emulator,
                    "User-mode emulator for programs of another processor, such as \"qemu-arm -L SYSROOT\"")
        ->envname("VBOARD_EMULATOR");
    run->add_flag("--keep", options->keep, "Keep the directory of a new board");
    const auto wish = [options](vboard::FenceWish what) { return [options, what] { options->fence = what; }; };
    run->add_flag_callback("--no-fence", wish(vboard::FenceWish::kNone),
                           "Leave the namespaces out: the preload library alone keeps programs away from this machine")
        ->excludes(run->add_flag_callback("--fence", wish(vboard::FenceWish::kRequired),
                                          "Run nothing where the kernel does not allow the namespaces"));
    run->add_flag("--real-net", options->real_net,
                  "Create a network namespace with \"lo\" for the board; interface requests reach the kernel there "
                  "(requires root, or a kernel that allows unprivileged user namespaces)");
    run->add_flag("--no-trace", *no_trace, "Write no trace");
    auto *explained =
        run->add_flag("--explain", *explain, "Print what protects this machine from a program, and run nothing");
    run->add_flag("--json", *json, "Print the explanation as a JSON document")->needs(explained);
    run->add_option("program", options->program, "Program and its arguments, after \"--\"");
    run->positionals_at_end();
    run->callback([options, no_trace, explain, json, &status] {
        if (*explain) {
            std::cout << vboard::explanation(vboard::obstacle_to_fence(*options), *json);
            return;
        }
        if (options->program.empty())
            throw CLI::RequiredError("program");
        options->trace = !*no_trace;
        status = vboard::run(*options);
    });
}

void add_create(CLI::App &app)
{
    auto directory = std::make_shared<std::string>();
    auto type = std::make_shared<std::string>("mbo");
    CLI::App *create = app.add_subcommand("create", "Create a board directory");
    create->add_option("directory", *directory, "A new or empty directory")->required();
    create->add_option("--type", *type, "Type of board, or the path of a board description")->capture_default_str();
    create->callback([directory, type] {
        const bool is_path = type->find('/') != std::string::npos;
        vboard::create_board(fs::absolute(*directory),
                             is_path ? fs::path(*type) : vboard::descriptions() / (*type + ".conf"));
        std::cout << "created " << *directory << "; run a program on it: vboard run --board " << *directory
                  << " -- PROGRAM\n";
    });
}

void add_ctl(CLI::App &app)
{
    auto board = std::make_shared<std::string>();
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App *ctl = app.add_subcommand("ctl", "Inspect, change or break a running board");
    ctl->add_option("--board", *board, "Board directory (default: the board of the caller)");
    ctl->add_option("words", *words,
                    "Command, such as: models | fpga set 0x100 1 | fault add pread:/dev/fpga_usr nth=2 errno=EIO");
    ctl->positionals_at_end();
    ctl->prefix_command();
    ctl->set_help_flag(); // control_help prints it, once all words are known
    ctl->callback([ctl, board, words] {
        for (const std::string &word : ctl->remaining())
            words->push_back(word);
        const auto help = std::find_if(words->begin(), words->end(),
                                       [](const std::string &word) { return word == "--help" || word == "-h"; });
        if (words->empty() || help != words->end()) {
            std::cout << vboard::control_help({words->begin(), help});
            return;
        }
        vboard::Client client(*board);
        std::istringstream lines(client.run(*words));
        for (std::string line; std::getline(lines, line);)
            (line.starts_with("warning: ") ? std::cerr : std::cout) << line << "\n";
        std::cout << std::flush;
    });
}

void print_from(std::ifstream &in, bool follow)
{
    for (std::string line;;) {
        while (std::getline(in, line))
            std::cout << line << "\n";
        std::cout << std::flush;
        if (!follow)
            return;
        in.clear();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

void add_trace(CLI::App &app)
{
    auto board = std::make_shared<std::string>();
    auto follow = std::make_shared<bool>(false);
    CLI::App *trace = app.add_subcommand("trace", "Print the calls of the board's programs, one JSON object a line");
    trace->add_option("--board", *board, "Board directory (default: the board of the caller)");
    trace->add_flag("--follow,-f", *follow, "Continue with new calls as they happen");
    trace->callback([board, follow] {
        const fs::path directory = board->empty() ? vboard::Client().directory() : fs::path(*board);
        std::ifstream in(directory / ".vboard/trace.jsonl");
        if (!in)
            throw vboard::ClientError(directory.string() + " has no trace; run a program on the board first");
        print_from(in, *follow);
    });
}

void add_types(CLI::App &app)
{
    app.add_subcommand("types", "List the types of board")->callback([] {
        for (const auto &[type, name] : vboard::board_types())
            std::cout << type << "\t" << name << "\n";
    });
}

void write_documents(const CLI::App &app, const fs::path &folder)
{
    const auto write = [&folder](const std::string &name, const std::string &text) {
        std::ofstream file(folder / name);
        file << text << std::flush;
        if (!file)
            throw std::runtime_error("cannot write " + (folder / name).string());
    };
    write("vboard.1", vboard::manual_page(app));
    for (const char *shell : {"bash", "zsh", "fish"})
        write(std::string("vboard.") + shell, command_line::completion_script(shell, "vboard"));
}

// For packages and documents: hidden from --help.
void add_documents(CLI::App &app)
{
    app.add_option_function<std::string>("--documents",
                                         [&app](const std::string &folder) {
                                             write_documents(app, folder);
                                             throw CLI::Success();
                                         })
        ->group("");
    app.add_option_function<std::string>(
           "--completion",
           [](const std::string &shell) {
               const std::string script = command_line::completion_script(shell, "vboard");
               if (script.empty())
                   throw CLI::ValidationError("--completion", "\"" + shell + "\" is not one of bash, zsh, fish");
               std::cout << script;
               throw CLI::Success();
           },
           "Print the completion script of bash, zsh or fish")
        ->type_name("SHELL");
    app.add_flag_callback("--control-reference",
                          [] {
                              std::cout << vboard::control_reference();
                              throw CLI::Success();
                          })
        ->group("");
    app.add_flag_callback("--fence-reference",
                          [] {
                              std::cout << vboard::fence_reference();
                              throw CLI::Success();
                          })
        ->group("");
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Virtual board: run applications without hardware", "vboard");
    app.require_subcommand(1);
    app.set_version_flag("--version", "vboard " VBOARD_VERSION);
    int status = 0;
    add_run(app, status);
    add_create(app);
    add_ctl(app);
    add_trace(app);
    add_types(app);
    add_documents(app);
    try {
        if (argc > 1 && std::string(argv[1]) == command_line::kCompletionOption) {
            std::cout << vboard::completions(app, {argv + 2, argv + argc});
            return 0;
        }
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception &error) {
        std::cerr << "vboard: " << error.what() << "\n";
        return 1;
    }
    return status;
}
