// The kestro command line: a program with subcommands, each taking
// positional arguments, options with a value and flags. Small and
// table-driven: the command is a process per use, and its start-up is part
// of what users wait for on every report.
#ifndef KESTRO_TOOLS_ARGS_H
#define KESTRO_TOOLS_ARGS_H

#include <string>
#include <vector>

namespace kestro_tool {

struct ArgOption {
    const char* names;  // "-o,--output" or "--abs"
    const char* help;
    bool* flag = nullptr;          // a flag: set when given
    std::string* value = nullptr;  // an option: its value
    const char* valueName = "TEXT";
    std::vector<std::string> choices = {};  // when not empty, the only values allowed
    bool required = false;
};

struct ArgPositional {
    const char* name;  // "PATH"
    const char* help;
    std::string* one = nullptr;                // exactly one
    std::vector<std::string>* many = nullptr;  // one or more
};

struct ArgCommand {
    const char* name;
    const char* help;
    std::vector<ArgPositional> positionals;
    std::vector<ArgOption> options;
};

struct ArgProgram {
    const char* name;
    const char* help;
    const char* version;
    std::vector<ArgCommand> commands;
};

// Parses argv against `program`. Returns the index of the subcommand given;
// prints help or the version on stdout and returns -1 with `exitCode` 0,
// or prints a usage error on stderr and returns -1 with `exitCode` 2.
int ParseArgs(const ArgProgram& program, int argc, char** argv, int& exitCode);

}  // namespace kestro_tool

#endif
