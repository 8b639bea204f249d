#include "args.h"

#include <cstdio>
#include <cstring>

namespace kestro_tool {
namespace {

// The names of an option, "-o,--output" -> {"-o", "--output"}.
std::vector<std::string> NamesOf(const ArgOption& o) {
    std::vector<std::string> names;
    const char* at = o.names;
    while (*at) {
        const char* comma = std::strchr(at, ',');
        size_t n = comma ? size_t(comma - at) : std::strlen(at);
        names.emplace_back(at, n);
        at += n + (comma ? 1 : 0);
    }
    return names;
}

bool Named(const ArgOption& o, const std::string& name) {
    for (const auto& n : NamesOf(o))
        if (n == name) return true;
    return false;
}

// The longest name, as errors call the option.
std::string LongName(const ArgOption& o) {
    std::string best;
    for (const auto& n : NamesOf(o))
        if (n.size() > best.size()) best = n;
    return best;
}

// "  NAME   help text", the help wrapped at 80 columns under itself.
void Row(const std::string& left, const std::string& right) {
    constexpr size_t kIndent = 30, kWidth = 80;
    std::string out = "  " + left;
    out += left.size() + 2 < kIndent ? std::string(kIndent - 2 - left.size(), ' ')
                                     : "\n" + std::string(kIndent, ' ');
    size_t column = kIndent;
    for (size_t at = 0; at < right.size();) {
        size_t end = right.find(' ', at);
        if (end == std::string::npos) end = right.size();
        const size_t word = end - at;
        if (column > kIndent && column + 1 + word > kWidth) {
            out += "\n" + std::string(kIndent, ' ');
            column = kIndent;
        } else if (column > kIndent) {
            out += ' ';
            ++column;
        }
        out.append(right, at, word);
        column += word;
        at = end + 1;
    }
    std::printf("%s\n", out.c_str());
}

void ProgramHelp(const ArgProgram& p) {
    std::printf("%s\nUsage: %s [OPTIONS] SUBCOMMAND\n\nOptions:\n", p.help, p.name);
    Row("-h,--help", "Print this help message and exit");
    Row("--version", "Display program version information and exit");
    std::printf("\nSubcommands:\n");
    for (const auto& c : p.commands) Row(c.name, c.help);
}

void CommandHelp(const ArgProgram& p, const ArgCommand& c) {
    std::string usage = std::string(p.name) + " " + c.name + " [OPTIONS]";
    for (const auto& a : c.positionals) usage += std::string(" ") + a.name + (a.many ? "..." : "");
    std::printf("%s\nUsage: %s\n\nPositionals:\n", c.help, usage.c_str());
    for (const auto& a : c.positionals)
        Row(std::string(a.name) + (a.many ? " ..." : ""), std::string(a.help) + " (required)");
    std::printf("\nOptions:\n");
    Row("-h,--help", "Print this help message and exit");
    for (const auto& o : c.options) {
        std::string left = o.names;
        if (o.value) left += " " + std::string(o.valueName);
        std::string right = o.help;
        if (!o.choices.empty()) {
            right += " (one of:";
            for (const auto& v : o.choices) right += " " + v;
            right += ")";
        }
        if (o.required) right += " (required)";
        Row(left, right);
    }
}

bool LooksLikeOption(const char* arg) { return arg[0] == '-' && arg[1] != '\0'; }

// Sets every flag of "-abc" when each letter is a short flag of the command.
bool SetShortFlags(const ArgCommand& c, const std::string& arg) {
    std::vector<bool*> flags;
    for (size_t at = 1; at < arg.size(); ++at) {
        const std::string name = std::string("-") + arg[at];
        const ArgOption* found = nullptr;
        for (const auto& o : c.options)
            if (o.flag && Named(o, name)) found = &o;
        if (!found) return false;
        flags.push_back(found->flag);
    }
    for (bool* f : flags) *f = true;
    return true;
}

// A usage error: the message, then where help is; exit status 2.
int Usage(int& exitCode, const std::string& where, const std::string& helpCommand,
          const std::string& message) {
    std::fprintf(stderr, "%s: %s\nRun '%s --help' for more information.\n", where.c_str(),
                 message.c_str(), helpCommand.c_str());
    exitCode = 2;
    return -1;
}

int ParseCommand(const ArgProgram& p, const ArgCommand& c, int index, int argc, char** argv,
                 int& exitCode) {
    const std::string where = std::string(p.name) + " " + c.name;
    auto fail = [&](const std::string& message) { return Usage(exitCode, where, where, message); };
    std::vector<bool> given(c.options.size(), false);
    size_t positional = 0;
    bool onlyPositionals = false;
    for (int i = index + 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (!onlyPositionals && arg == "--") {
            onlyPositionals = true;
            continue;
        }
        if (!onlyPositionals && arg.size() > 1 && arg[0] == '-') {
            if (arg == "-h" || arg == "--help") {
                CommandHelp(p, c);
                exitCode = 0;
                return -1;
            }
            // "--name=value", "--name value", "-n value" or "-nvalue".
            std::string name = arg, inlineValue;
            bool hasInline = false;
            if (arg.compare(0, 2, "--") == 0 && arg.find('=') != std::string::npos) {
                name = arg.substr(0, arg.find('='));
                inlineValue = arg.substr(arg.find('=') + 1);
                hasInline = true;
            }
            size_t k = 0;
            while (k < c.options.size() && !Named(c.options[k], name)) ++k;
            if (k == c.options.size() && arg[1] != '-' && arg.size() > 2) {
                name = arg.substr(0, 2);
                for (k = 0; k < c.options.size(); ++k)
                    if (c.options[k].value && Named(c.options[k], name)) break;
                inlineValue = arg.substr(2);
                hasInline = true;
                // "-qf": short flags together.
                if (k == c.options.size() && SetShortFlags(c, arg)) continue;
            }
            if (k == c.options.size()) return fail("unknown option '" + arg + "'");
            const ArgOption& o = c.options[k];
            if (o.flag) {
                if (hasInline) return fail(LongName(o) + " takes no value");
                *o.flag = true;
                continue;
            }
            if (given[k]) return fail(LongName(o) + " given more than once");
            given[k] = true;
            if (!hasInline) {
                // A value that starts with '-' is given as --name=-x or -n-x.
                if (i + 1 >= argc || LooksLikeOption(argv[i + 1]))
                    return fail(LongName(o) + " needs a value");
                inlineValue = argv[++i];
            }
            if (!o.choices.empty()) {
                bool allowed = false;
                std::string list;
                for (const auto& v : o.choices) {
                    allowed = allowed || v == inlineValue;
                    list += (list.empty() ? "" : ", ") + v;
                }
                if (!allowed)
                    return fail(LongName(o) + ": '" + inlineValue + "' is not one of " + list);
            }
            *o.value = inlineValue;
            continue;
        }
        if (positional == c.positionals.size()) return fail("unexpected argument '" + arg + "'");
        const ArgPositional& a = c.positionals[positional];
        if (a.many) {
            a.many->push_back(arg);
        } else {
            *a.one = arg;
            ++positional;
        }
    }
    for (size_t k = 0; k < c.options.size(); ++k)
        if (c.options[k].required && !given[k]) return fail(LongName(c.options[k]) + " is required");
    for (const auto& a : c.positionals)
        if (a.many ? a.many->empty() : positional <= size_t(&a - c.positionals.data()))
            return fail(std::string(a.name) + " is required");
    exitCode = 0;
    return int(&c - p.commands.data());
}

}  // namespace

int ParseArgs(const ArgProgram& p, int argc, char** argv, int& exitCode) {
    std::string names;
    for (const auto& c : p.commands) names += (names.empty() ? "" : ", ") + std::string(c.name);
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "-h" || arg == "--help") {
            ProgramHelp(p);
            exitCode = 0;
            return -1;
        }
        if (arg == "--version") {
            std::printf("%s\n", p.version);
            exitCode = 0;
            return -1;
        }
        if (arg.size() > 1 && arg[0] == '-')
            return Usage(exitCode, p.name, p.name, "unknown option '" + arg + "'");
        for (const auto& c : p.commands)
            if (arg == c.name) return ParseCommand(p, c, i, argc, argv, exitCode);
        return Usage(exitCode, p.name, p.name,
                     "unknown subcommand '" + arg + "' (the subcommands: " + names + ")");
    }
    return Usage(exitCode, p.name, p.name, "a subcommand is required: " + names);
}

}  // namespace kestro_tool
