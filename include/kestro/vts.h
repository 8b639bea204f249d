// Placeholder: filled in by the subsystem's implementation.
#ifndef KESTRO_VTS_H
#define KESTRO_VTS_H

#include "kestro/frame.h"
#include "kestro/pgc.h"

#endif
