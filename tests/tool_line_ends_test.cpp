// The command squeezes the "\r" out of report text in place, sixteen bytes
// at a time once it runs far enough behind: texts of every length and
// density of "\r" against the plain reading.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "line_ends.h"

namespace {

// The squeeze leaves out every "\r" and nothing else, and writes nothing past the text.
TEST(LineEnds, SqueezeLeavesOutEveryCarriageReturnAndNothingElse) {
    std::mt19937 random(7);
    const std::string alphabets[] = {"\r\n", "ab\r\n", "abcdefgh\r",
                                     "abcdefghijklmnopqrstuvwxyz0123456789\r"};
    for (const std::string& alphabet : alphabets)
        for (size_t size : {0, 1, 15, 16, 17, 31, 32, 33, 47, 100, 1000, 40000}) {
            std::string text;
            for (size_t i = 0; i < size; ++i) text += alphabet[random() % alphabet.size()];
            std::string expected;
            for (char c : text)
                if (c != '\r') expected += c;
            std::string squeezed = text + std::string(16, 'G');  // untouched beyond size
            size_t n = kestro_tool::SqueezeCarriageReturns(&squeezed[0], size);
            EXPECT_EQ(squeezed.substr(0, n), expected) << alphabet.size() << " " << size;
            EXPECT_EQ(squeezed.substr(size), std::string(16, 'G'));
        }
}

}  // namespace
