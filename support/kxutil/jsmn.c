// The JSON tokenizer, compiled once for the process (non-strict, no parent links) and exported from here.

#pragma GCC visibility push(default)
#include <jsmn.h>
#pragma GCC visibility pop
