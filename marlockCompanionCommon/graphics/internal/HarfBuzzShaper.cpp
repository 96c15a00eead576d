#include "marlockCompanionCommon/graphics/internal/HarfBuzzShaper.h"

#include <hb.h>

#include <memory>
#include <mutex>
#include <vector>

namespace graphics::internal {
namespace {

hb_blob_t* tableOf(hb_face_t*, hb_tag_t tag, void* userData) {
    const auto* rawFont = static_cast<const QRawFont*>(userData);
    const char name[4] = {char(tag >> 24), char(tag >> 16), char(tag >> 8), char(tag)};
    auto* table = new QByteArray(rawFont->fontTable(name));
    return hb_blob_create(table->constData(), static_cast<unsigned>(table->size()), HB_MEMORY_MODE_READONLY,
                          table, [](void* bytes) { delete static_cast<QByteArray*>(bytes); });
}

// HarfBuzz faces are made once per font file and style and kept for the process: reading the
// substitution tables is the costly part of shaping, and a process uses a handful of fonts.
struct CachedFace {
    QString key;
    std::unique_ptr<QRawFont> tables; // what the face reads its tables from; never moves
    hb_face_t* face;
};

hb_face_t* faceFor(const QRawFont& rawFont) {
    static std::mutex mutex;
    static std::vector<CachedFace> faces;
    const QString key = rawFont.familyName() + QLatin1Char('\n') + rawFont.styleName() + QLatin1Char('\n') +
                        QString::number(rawFont.weight()) + QLatin1Char('\n') +
                        QString::number(static_cast<int>(rawFont.style()));
    std::lock_guard lock(mutex);
    for (const CachedFace& cached : faces) {
        if (cached.key == key)
            return cached.face;
    }
    auto tables = std::make_unique<QRawFont>(rawFont);
    hb_face_t* face = hb_face_create_for_tables(tableOf, tables.get(), nullptr);
    faces.push_back({key, std::move(tables), face});
    return face;
}

} // namespace

ShapedText shapeText(const QRawFont& rawFont, const QString& text, const QList<FontFeature>& features) {
    ShapedText shaped;
    if (!rawFont.isValid() || text.isEmpty())
        return shaped;
    hb_face_t* face = faceFor(rawFont);
    std::unique_ptr<hb_font_t, decltype(&hb_font_destroy)> font(hb_font_create(face), hb_font_destroy);
    const int unitsPerEm = static_cast<int>(hb_face_get_upem(face));
    hb_font_set_scale(font.get(), unitsPerEm, unitsPerEm);

    std::unique_ptr<hb_buffer_t, decltype(&hb_buffer_destroy)> buffer(hb_buffer_create(), hb_buffer_destroy);
    hb_buffer_add_utf16(buffer.get(), reinterpret_cast<const uint16_t*>(text.utf16()),
                        static_cast<int>(text.size()), 0, static_cast<int>(text.size()));
    hb_buffer_guess_segment_properties(buffer.get());

    std::vector<hb_feature_t> settings;
    for (const FontFeature& feature : features) {
        if (feature.tag.size() != 4)
            continue;
        settings.push_back({hb_tag_from_string(feature.tag.constData(), 4), feature.value,
                            HB_FEATURE_GLOBAL_START, HB_FEATURE_GLOBAL_END});
    }
    hb_shape(font.get(), buffer.get(), settings.data(), static_cast<unsigned>(settings.size()));

    unsigned count = 0;
    const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer.get(), &count);
    const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer.get(), &count);
    const qreal scale = rawFont.pixelSize() / unitsPerEm;
    qreal penX = 0;
    qreal penY = 0;
    for (unsigned i = 0; i < count; ++i) {
        shaped.glyphIndexes.append(infos[i].codepoint);
        // HarfBuzz measures y upwards; glyph runs measure it downwards.
        shaped.positions.append(
            QPointF(penX + positions[i].x_offset * scale, penY - positions[i].y_offset * scale));
        penX += positions[i].x_advance * scale;
        penY -= positions[i].y_advance * scale;
    }
    shaped.advance = penX;
    return shaped;
}

} // namespace graphics::internal
