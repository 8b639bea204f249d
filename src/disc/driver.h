// The table classes driven by their own rules: the module's lossless
// operations run these first and then restore what the rules drop.
#ifndef KESTRO_SRC_DISC_DRIVER_H
#define KESTRO_SRC_DISC_DRIVER_H

#include <string>

#include "kestro/disc.h"

namespace kestro {
namespace disc {

// The kind of IFO file by its 12-character identifier.
bool KindOfFile(const std::string& ifo, IfoKind& kind, std::string& error);

// The source of `ifo` written by the table classes alone.
bool LibraryDisasm(const std::string& ifo, const std::string& ini, SideFiles side,
                   DisasmResult& result);
// The IFO file assembled by the table classes alone.
bool LibraryAsm(const std::string& ini, const std::string& out, const std::string& vobDir,
                const std::string& ifoName, const AsmOptions& options, AsmResult& result);

}  // namespace disc
}  // namespace kestro

#endif
