// Reads a patched file back and holds it against its source.
#ifndef MEDIA_PATCH_VERIFY_H
#define MEDIA_PATCH_VERIFY_H

#include <string>

namespace qlnmedia {

// Throws Error, naming the first difference, unless both files have the same streams, each stream the
// same packets at the same times, every coded slice unit the same bytes, and every other stream the same
// data.
void VerifyPatched(const std::string& in, const std::string& out);

}  // namespace qlnmedia

#endif
