#pragma once

#include <QByteArray>
#include <QString>

namespace platform::PropertyList::internal {

// Checks the object graph of a binary property list before it is handed to the parser, which
// follows references without limits: the trailer and offset table lie inside the bytes, every
// reference names an object, no container reaches itself, nesting stays within `maximumDepth`,
// the tree the parser would build (shared objects counted once per use) stays small, and
// dictionary keys are strings. Returns an empty string when the graph is sound, else the problem.
// Scalars are left to the parser.
QString checkBinaryPlist(const QByteArray& bytes, int maximumDepth);

} // namespace platform::PropertyList::internal
