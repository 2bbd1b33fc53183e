// The elements of the plug-in.
#ifndef GST_ELEMENTS_H
#define GST_ELEMENTS_H

#include <gst/gst.h>

// Changes what a stream says, without touching a coded slice.
GType qln_edit_type();
// Looks at a stream without touching it, and posts what it finds.
GType qln_check_type();

#endif
