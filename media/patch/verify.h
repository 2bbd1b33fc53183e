// Reads a patched file back and holds it against its source.
#ifndef MEDIA_PATCH_VERIFY_H
#define MEDIA_PATCH_VERIFY_H

#include <string>

namespace qlnmedia {

// Throws Error, naming `name` (what `out` is going to be called) and the first difference, unless both files
// have the same streams, each stream the same packets at the same times, every coded slice unit the same
// bytes, and every other stream the same data. Says what was compared.
std::string VerifyPatched(const std::string& in, const std::string& out, const std::string& name);

}  // namespace qlnmedia

#endif
