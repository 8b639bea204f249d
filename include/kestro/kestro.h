// Kestro: reads, reports on, rebuilds and writes the navigation files of a
// DVD-Video volume (VIDEO_TS.IFO and VTS_nn_0.IFO).
#ifndef KESTRO_KESTRO_H
#define KESTRO_KESTRO_H

#include "kestro/export.h"
#include "kestro/frame.h"
#include "kestro/ini.h"
#include "kestro/pgc.h"
#include "kestro/tables.h"
#include "kestro/vmg.h"
#include "kestro/vts.h"
#include "kestro/disc.h"
#include "kestro/check.h"

#endif
