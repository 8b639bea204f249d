// Flush batching of the INI store.
#ifndef KESTRO_SRC_INI_INI_BATCH_H
#define KESTRO_SRC_INI_INI_BATCH_H

#include "kestro/ini.h"

namespace kestro {

// A batch lies within one library call and is an operation too. While one
// is open, INIFlushFiles only notes the request; the last batch to end
// performs it.
void IniBeginBatch();
void IniEndBatch();

// A batch for the lifetime of the object. Tables that pass many PGCs to the
// codec (whose source writer flushes after every PGC) hold one around the
// loop, so the source file is written once instead of once per PGC.
class FlushBatch {
public:
    FlushBatch() { IniBeginBatch(); }
    ~FlushBatch() { IniEndBatch(); }
    FlushBatch(const FlushBatch&) = delete;
    FlushBatch& operator=(const FlushBatch&) = delete;
};

}  // namespace kestro

#endif
