"""What functions that take bytes take."""
from __future__ import annotations

import array
import mmap
from typing import Any, TypeAlias

#: Any object with a contiguous buffer; type checkers know these.
Buffer: TypeAlias = "bytes | bytearray | memoryview | mmap.mmap | array.array[Any]"
