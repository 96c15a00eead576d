#pragma once

#include <QByteArray>
#include <QString>

namespace platform::PropertyList::internal {

// Checks how deeply the arrays and dictionaries of an XML property list nest, before the parser,
// which recurses once per level, builds the tree. Errs on the safe side: an opening tag counts
// even inside a comment or CDATA section, a closing tag only outside them. Returns an empty
// string when the nesting stays within `maximumDepth`, else the problem.
QString checkXmlPlistDepth(const QByteArray& bytes, int maximumDepth);

} // namespace platform::PropertyList::internal
