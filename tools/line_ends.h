// Report text as the terminal gets it.
#ifndef KESTRO_TOOLS_LINE_ENDS_H
#define KESTRO_TOOLS_LINE_ENDS_H

#include <cstddef>

namespace kestro_tool {

// Removes every "\r" from text[0, size) in place; returns the new size.
size_t SqueezeCarriageReturns(char* text, size_t size);

}  // namespace kestro_tool

#endif
