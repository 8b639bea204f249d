// Placeholder: filled in by the subsystem's implementation.
#ifndef KESTRO_TABLES_H
#define KESTRO_TABLES_H

#include "kestro/frame.h"
#include "kestro/pgc.h"

#endif
