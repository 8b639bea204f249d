// kestro check: what is wrong with a disc's navigation, one finding a line.
#ifndef KESTRO_TOOLS_CHECK_H
#define KESTRO_TOOLS_CHECK_H

#include <string>
#include <vector>

namespace kestro_tool {

struct CheckArgs {
    std::vector<std::string> paths;  // DVD folders, IFO files or sources
    bool json = false;               // the findings as JSON on stdout
    bool ifoOnly = false;            // the folders hold navigation files only
    bool quiet = false;              // the summary only
    std::string vobSizes;            // sources: "NAME BYTES" lines giving the VOB files' sizes
};
// 0 when no path has an error, 1 otherwise (also when a path cannot be read).
int RunCheck(const CheckArgs& args);

}  // namespace kestro_tool

#endif
