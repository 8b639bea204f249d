// Placeholder: filled in by the subsystem's implementation.
#ifndef KESTRO_VMG_H
#define KESTRO_VMG_H

#include "kestro/frame.h"
#include "kestro/pgc.h"

#endif
