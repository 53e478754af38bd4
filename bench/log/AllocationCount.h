#pragma once

/// How often this process has asked for heap memory so far, the C library's own requests included.
long allocationCount();
