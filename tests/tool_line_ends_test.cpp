// The command squeezes the "\r" out of report text in place, sixteen bytes at a time once it
// runs far enough behind: texts of every length and density of "\r" against the plain reading.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "line_ends.h"

TEST(LineEnds, SqueezeLeavesOutEveryCarriageReturnAndNothingElse) {
    std::mt19937 random(7);
    for (const std::string alphabet :
         {"\r\n", "ab\r\n", "abcdefgh\r", "abcdefghijklmnopqrstuvwxyz0123456789\r"})
        for (size_t size : {0, 1, 15, 16, 17, 31, 32, 33, 47, 100, 1000, 40000}) {
            std::string text, expected;
            for (size_t i = 0; i < size; ++i) text += alphabet[random() % alphabet.size()];
            for (char c : text)
                if (c != '\r') expected += c;
            std::string squeezed = text + std::string(16, 'G');  // nothing written past the text
            size_t n = kestro_tool::SqueezeCarriageReturns(&squeezed[0], size);
            EXPECT_EQ(squeezed.substr(0, n), expected) << alphabet.size() << " " << size;
            EXPECT_EQ(squeezed.substr(size), std::string(16, 'G'));
        }
}
