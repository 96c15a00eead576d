#pragma once

// The shared library is built with hidden symbols: only what a header marks with MCC_EXPORT is
// visible to host programs. Mark public classes (`class MCC_EXPORT Clock`) and public free
// functions; leave private classes and helpers unmarked, inside a namespace of their own.
#define MCC_EXPORT __attribute__((visibility("default")))
