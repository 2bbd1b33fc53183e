// The state of the colour matrix choice, for tests.
#ifndef QLNUTIL_FORMAT_MATRIX_H
#define QLNUTIL_FORMAT_MATRIX_H

namespace qln {

// Brings GetMatrixBySize back to where a process starts: the store is read at the next call.
void ForgetForcedVideoRange();

}  // namespace qln

#endif
