#include "marlockCompanionCommon/platform/storage/internal/XmlPlistCheck.h"

#include <string_view>

namespace platform::PropertyList::internal {
namespace {

bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == ':' || c == '.';
}

// True when the tag name at `at` is exactly `name`.
bool nameAt(std::string_view text, size_t at, std::string_view name) {
    return text.substr(at, name.size()) == name &&
           (at + name.size() >= text.size() || !isNameChar(text[at + name.size()]));
}

bool containerAt(std::string_view text, size_t at) {
    return nameAt(text, at, "array") || nameAt(text, at, "dict");
}

} // namespace

QString checkXmlPlistDepth(const QByteArray& bytes, int maximumDepth) {
    const std::string_view text(bytes.constData(), static_cast<size_t>(bytes.size()));
    // Regions the parser does not read as markup; closing tags inside them are not counted.
    constexpr std::pair<std::string_view, std::string_view> skipped[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
    long depth = 0;
    size_t at = 0;
    // The next '>' at or after the current tag, found once and reused, so that a run of tags
    // without any '>' is not searched again for each tag.
    size_t tagEnd = 0;
    bool tagEndKnown = false;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        bool skippedRegion = false;
        for (const auto& [open, close] : skipped) {
            if (text.substr(at, open.size()) != open)
                continue;
            const size_t end = text.find(close, at + open.size());
            // Opening tags inside still count: whatever the parser makes of this region, the
            // depth seen here is never below its own.
            for (size_t inner = text.find('<', at + 1); inner < end && inner != std::string_view::npos;
                 inner = text.find('<', inner + 1)) {
                if (containerAt(text, inner + 1) && ++depth > maximumDepth)
                    return QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth);
            }
            at = end == std::string_view::npos ? text.size() : end + close.size();
            skippedRegion = true;
            break;
        }
        if (skippedRegion)
            continue;
        ++at;
        const bool closing = at < text.size() && text[at] == '/';
        if (!containerAt(text, closing ? at + 1 : at))
            continue;
        if (closing) {
            --depth;
            continue;
        }
        if (!tagEndKnown || (tagEnd != std::string_view::npos && tagEnd < at)) {
            tagEnd = text.find('>', at);
            tagEndKnown = true;
        }
        const bool selfClosing = tagEnd != std::string_view::npos && text[tagEnd - 1] == '/';
        if (!selfClosing && ++depth > maximumDepth)
            return QStringLiteral("nesting deeper than %1 levels").arg(maximumDepth);
    }
    return {};
}

} // namespace platform::PropertyList::internal
