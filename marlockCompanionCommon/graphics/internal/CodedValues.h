#pragma once

#include "marlockCommon/KeyedCoding.h"
#include "marlockCompanionCommon/graphics/Font.h"
#include "marlockCompanionCommon/graphics/MediaTimingFunction.h"

#include <QColor>
#include <QPointF>
#include <QRectF>

#include <optional>

// How the graphics values travel in keyed archives. Colours, fonts and timing functions are
// nested objects of their own classes ("graphics.Color", "graphics.Font",
// "graphics.MediaTimingFunction"), so a reader's allow-list names them; points and rectangles
// are plain numbers under "<key>.x", "<key>.y", "<key>.width", "<key>.height".
//
// Readers give absent for a missing key or a value of another type; a nested object of another
// class, or one whose fields are out of range (non-finite numbers, colour components outside
// [0, 1], impossible font sizes or feature tags), fails the decoding.
namespace graphics::internal {

inline const QString colorClassName = QStringLiteral("graphics.Color");
inline const QString fontClassName = QStringLiteral("graphics.Font");
inline const QString timingFunctionClassName = QStringLiteral("graphics.MediaTimingFunction");

// Makes the three classes known to unarchivers (once per process; thread-safe).
void registerCodedValueClasses();

void encodeColor(marlockCommon::KeyedEncoder& coder, const QString& key, const QColor& color);
void encodeFont(marlockCommon::KeyedEncoder& coder, const QString& key, const Font& font);
void encodeTimingFunction(marlockCommon::KeyedEncoder& coder, const QString& key,
                          const MediaTimingFunction& timing);
void encodePoint(marlockCommon::KeyedEncoder& coder, const QString& key, const QPointF& point);
void encodeRect(marlockCommon::KeyedEncoder& coder, const QString& key, const QRectF& rect);

std::optional<QColor> decodeColor(marlockCommon::KeyedDecoder& coder, const QString& key);
std::optional<Font> decodeFont(marlockCommon::KeyedDecoder& coder, const QString& key);
std::optional<MediaTimingFunction> decodeTimingFunction(marlockCommon::KeyedDecoder& coder,
                                                        const QString& key);
std::optional<QPointF> decodePoint(marlockCommon::KeyedDecoder& coder, const QString& key);
std::optional<QRectF> decodeRect(marlockCommon::KeyedDecoder& coder, const QString& key);

} // namespace graphics::internal
