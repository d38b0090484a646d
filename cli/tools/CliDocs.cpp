// Build tool: writes norrowctl's manual page and its bash and zsh completions from the very
// command table that norrowctl parses, so that neither can drift from the tool's own help.
//
// Usage: norrowctl_docs VERSION MANPAGE BASH_COMPLETION ZSH_COMPLETION

#include "cli/Cli.h"
#include "core/Files.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

using Option = const CLI::Option*;

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const auto& word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

// One command of the table: the words that name it and its node.
struct Command {
    std::vector<std::string> words;
    const CLI::App* app;

    std::string name() const { return joined(words); }
    std::vector<const CLI::App*> subcommands() const {
        return app->get_subcommands(std::function<bool(const CLI::App*)>());
    }
    // The options with a name, help last.
    std::vector<Option> named() const {
        auto options = app->get_options([](Option o) { return o->nonpositional(); });
        std::stable_partition(options.begin(), options.end(),
                              [this](Option o) { return o != app->get_help_ptr(); });
        return options;
    }
    std::vector<Option> positionals() const {
        return app->get_options([](Option o) { return !o->nonpositional(); });
    }
};

void collect(const CLI::App* app, std::vector<std::string> words, std::vector<Command>& into) {
    into.push_back({words, app});
    for (const auto* sub : into.back().subcommands()) {
        auto longer = words;
        longer.push_back(sub->get_name());
        collect(sub, longer, into);
    }
}

bool takesValue(Option option) {
    return option->get_items_expected_max() > 0;
}

std::string names(Option option) {
    std::string out;
    for (const auto& s : option->get_snames())
        out += (out.empty() ? "-" : ", -") + s;
    for (const auto& l : option->get_lnames())
        out += (out.empty() ? "--" : ", --") + l;
    return out;
}

std::string valueName(Option option) {
    return option->get_positional() ? option->get_name() : option->get_type_name();
}

bool repeats(Option option) {
    return option->get_items_expected_max() > 1;
}

// How the command is typed, as its help shows it.
std::string usage(const Command& command) {
    std::string out = command.name();
    for (const auto option : command.named()) {
        if (option == command.app->get_help_ptr()) continue;
        std::string word = "--" + option->get_lnames().front();
        if (takesValue(option)) word += " " + valueName(option);
        out += " " + (option->get_required() ? word : "[" + word + "]");
    }
    for (const auto option : command.positionals()) {
        const std::string word = valueName(option) + (repeats(option) ? "..." : "");
        out += " " + (option->get_required() ? word : "[" + word + "]");
    }
    if (!command.subcommands().empty())
        out += command.app->get_require_subcommand_min() > 0 ? " COMMAND" : " [COMMAND]";
    return out;
}

// Text for roff: backslashes escaped, and a line never taken for a request.
std::string roff(const std::string& text) {
    std::string out;
    bool lineStart = true;
    for (const char c : text) {
        if (lineStart && (c == '.' || c == '\'')) out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
        lineStart = c == '\n';
    }
    return out;
}

std::string manPage(const std::vector<Command>& commands, const std::string& version) {
    const auto& top = commands.front();
    std::string page = ".TH NORROWCTL 1 \"\" \"Norrow " + roff(version) + "\" \"User Commands\"\n";
    page += ".SH NAME\nnorrowctl \\- " + roff(top.app->get_description()) + "\n";
    page += ".SH SYNOPSIS\n.B norrowctl\n.I COMMAND\n.RI [ OPTIONS ]\n";
    page += ".SH DESCRIPTION\n" + roff(top.app->get_description()) +
            ".\nEach command below is shown as it is typed, then what it does and its options.\n";
    page += ".SH OPTIONS\n";
    for (const auto option : top.named())
        page += ".TP\n.B " + roff(names(option)) + "\n" + roff(option->get_description()) + "\n";
    page += ".SH COMMANDS\n";
    for (auto command = commands.begin() + 1; command != commands.end(); ++command) {
        page += ".SS \"" + roff(usage(*command)) + "\"\n" + roff(command->app->get_description()) +
                "\n";
        for (const auto option : command->positionals()) {
            if (option->get_description().empty()) continue;
            page += ".TP\n.I " + roff(valueName(option)) + "\n" + roff(option->get_description()) +
                    "\n";
        }
        for (const auto option : command->named()) {
            if (option == command->app->get_help_ptr()) continue;
            page += ".TP\n\\fB" + roff(names(option)) + "\\fR";
            if (takesValue(option)) page += " \\fI" + roff(valueName(option)) + "\\fR";
            page += "\n" + roff(option->get_description()) + "\n";
        }
    }
    page += ".SH \"EXIT STATUS\"\n" + roff(top.app->get_footer()) + "\n";
    page += ".SH \"SEE ALSO\"\n.BR norrow (1)\n";
    return page;
}

// What completes after a command: its subcommands, and its options' names.
struct Choices {
    std::vector<std::string> commands;
    std::vector<std::string> options;
    // The names of the options whose value comes next.
    std::vector<std::string> valued;
};

Choices choices(const Command& command) {
    Choices out;
    for (const auto* sub : command.subcommands())
        out.commands.push_back(sub->get_name());
    for (const auto option : command.named()) {
        for (const auto& l : option->get_lnames()) {
            out.options.push_back("--" + l);
            if (takesValue(option)) out.valued.push_back("--" + l);
        }
        for (const auto& s : option->get_snames())
            out.options.push_back("-" + s);
    }
    return out;
}

// A shell case pattern list, each word quoted: "a" | "b".
std::string patterns(const std::vector<std::string>& words) {
    std::string out;
    for (const auto& word : words)
        out += (out.empty() ? "\"" : "\" | \"") + word;
    return out + "\"";
}

// The shells' completion scripts share their shape: find the command from the words before
// the cursor, leave an option's value to file completion, else offer options or subcommands.
struct Shell {
    std::string header;
    std::string walk;         // loops over the words before the cursor, each in `word`
    std::string previousWord; // the word before the cursor
    std::string caseOpen;     // "(" in zsh, nothing in bash
    std::string files;        // what completes a file name
    std::string offer;        // offers $flags or $subs, else files
    std::string arrays;       // how a list of words is assigned: "=(" or "=\""
    std::string arraysEnd;
    std::string footer;
};

std::string completion(const std::vector<Command>& commands, const Shell& shell) {
    // A word names a subcommand when it and the command so far make up a known command.
    std::vector<std::string> subcommands;
    for (auto command = commands.begin() + 1; command != commands.end(); ++command)
        subcommands.push_back(command->name());
    std::string script = shell.header;
    script += shell.walk;
    script += "        case \"$cmd $word\" in\n        " + shell.caseOpen + patterns(subcommands) +
              ") cmd=\"$cmd $word\" ;;\n        esac\n    done\n";

    std::vector<std::string> valued;
    for (const auto& command : commands)
        for (const auto& option : choices(command).valued)
            valued.push_back(command.name() + " " + option);
    script += "    case \"$cmd " + shell.previousWord + "\" in\n    " + shell.caseOpen +
              patterns(valued) + ") " + shell.files + " ;;\n    esac\n";

    script += "    case \"$cmd\" in\n";
    for (const auto& command : commands) {
        const auto offered = choices(command);
        script += "    " + shell.caseOpen + "\"" + command.name() + "\") subs" + shell.arrays +
                  joined(offered.commands) + shell.arraysEnd + " flags" + shell.arrays +
                  joined(offered.options) + shell.arraysEnd + " ;;\n";
    }
    script += "    esac\n" + shell.offer + "}\n" + shell.footer;
    return script;
}

const Shell bash{
    .header = "# bash completion for norrowctl, written from its command table\n"
              "_norrowctl() {\n"
              "    local cur=${COMP_WORDS[COMP_CWORD]} cmd=norrowctl word i subs flags\n"
              "    COMPREPLY=()\n",
    .walk = "    for ((i = 1; i < COMP_CWORD; i++)); do\n        word=${COMP_WORDS[i]}\n",
    .previousWord = "${COMP_WORDS[COMP_CWORD - 1]}",
    .caseOpen = "",
    .files = "return",
    .offer = "    if [[ $cur == -* ]]; then\n"
             "        mapfile -t COMPREPLY < <(compgen -W \"$flags\" -- \"$cur\")\n"
             "    elif [[ -n $subs ]]; then\n"
             "        mapfile -t COMPREPLY < <(compgen -W \"$subs\" -- \"$cur\")\n"
             "    fi\n",
    .arrays = "=\"",
    .arraysEnd = "\"",
    // An empty answer falls back to file names: arguments and option values are files.
    .footer = "complete -o default -F _norrowctl norrowctl\n",
};

const Shell zsh{
    .header = "#compdef norrowctl\n"
              "# zsh completion for norrowctl, written from its command table\n"
              "_norrowctl() {\n"
              "    local cmd=norrowctl word i\n"
              "    local -a subs flags\n",
    .walk = "    for ((i = 2; i < CURRENT; i++)); do\n        word=${words[i]}\n",
    .previousWord = "${words[CURRENT - 1]}",
    .caseOpen = "(",
    .files = "_files; return",
    .offer = "    if [[ ${words[CURRENT]} == -* ]]; then\n"
             "        compadd -- $flags\n"
             "    elif (( ${#subs} )); then\n"
             "        compadd -- $subs\n"
             "    else\n"
             "        _files\n"
             "    fi\n",
    .arrays = "=(",
    .arraysEnd = ")",
    .footer = "_norrowctl \"$@\"\n",
};

void write(const char* file, const std::string& text) {
    if (const auto failure = norrow::files::writeAtomically(file, text, {.mode = 0644}))
        throw std::runtime_error(std::string("could not write ") + file + ": " +
                                 std::strerror(failure->error));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: norrowctl_docs VERSION MANPAGE BASH_COMPLETION ZSH_COMPLETION\n";
        return 2;
    }
    try {
        int status = 0;
        const auto table = norrow::cli::commandTable(status);
        std::vector<Command> commands;
        collect(table.get(), {"norrowctl"}, commands);
        write(argv[2], manPage(commands, argv[1]));
        write(argv[3], completion(commands, bash));
        write(argv[4], completion(commands, zsh));
    } catch (const std::exception& e) {
        std::cerr << "norrowctl_docs: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
