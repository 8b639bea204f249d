// Links against the installed libkestro through its public headers only.
#include <kestro/kestro.h>

#include <cstdio>

int main() {
    CKestro_PGCI codec;
    unsigned char nop[8] = {};
    char text[64];
    int n = codec.DisAssembleCommand(nop, text);
    std::printf("%s|%lu\n", text, axtoi("x1A"));
    bool streamed;
    {
        kestro::ReportStream stream([](void*, char*, std::size_t) {}, nullptr);
        streamed = kestro::ReportStream::Current() == &stream;
    }
    return n == 13 && streamed && !kestro::ReportStream::Current() ? 0 : 1;
}
