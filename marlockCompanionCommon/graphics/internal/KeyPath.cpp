#include "marlockCompanionCommon/graphics/internal/KeyPath.h"

#include <QPointF>
#include <QRectF>
#include <QSizeF>

namespace graphics::internal {
namespace {

std::pair<QStringView, QStringView> splitFirst(QStringView path) {
    const qsizetype dot = path.indexOf(QLatin1Char('.'));
    if (dot < 0)
        return {path, {}};
    return {path.left(dot), path.mid(dot + 1)};
}

QVariant componentOf(const QVariant& value, QStringView name) {
    switch (value.metaType().id()) {
    case QMetaType::QRectF:
        if (name == u"origin")
            return value.toRectF().topLeft();
        if (name == u"size")
            return value.toRectF().size();
        break;
    case QMetaType::QPointF:
        if (name == u"x")
            return value.toPointF().x();
        if (name == u"y")
            return value.toPointF().y();
        break;
    case QMetaType::QSizeF:
        if (name == u"width")
            return value.toSizeF().width();
        if (name == u"height")
            return value.toSizeF().height();
        break;
    default:
        break;
    }
    return {};
}

QVariant withComponent(const QVariant& value, QStringView name, const QVariant& component) {
    switch (value.metaType().id()) {
    case QMetaType::QRectF: {
        QRectF rect = value.toRectF();
        if (name == u"origin")
            rect.moveTopLeft(component.toPointF());
        else if (name == u"size")
            rect.setSize(component.toSizeF());
        return rect;
    }
    case QMetaType::QPointF: {
        QPointF point = value.toPointF();
        if (name == u"x")
            point.setX(component.toDouble());
        else if (name == u"y")
            point.setY(component.toDouble());
        return point;
    }
    case QMetaType::QSizeF: {
        QSizeF size = value.toSizeF();
        if (name == u"width")
            size.setWidth(component.toDouble());
        else if (name == u"height")
            size.setHeight(component.toDouble());
        return size;
    }
    default:
        return value;
    }
}

} // namespace

std::pair<QString, QString> splitKeyPath(const QString& keyPath) {
    const auto [first, rest] = splitFirst(keyPath);
    return {first.toString(), rest.toString()};
}

QVariant partOf(const QVariant& value, QStringView subPath) {
    if (subPath.isEmpty())
        return value;
    const auto [first, rest] = splitFirst(subPath);
    const QVariant component = componentOf(value, first);
    return component.isValid() ? partOf(component, rest) : QVariant();
}

QVariant withPart(const QVariant& value, QStringView subPath, const QVariant& part) {
    if (subPath.isEmpty())
        return part;
    const auto [first, rest] = splitFirst(subPath);
    const QVariant component = componentOf(value, first);
    if (!component.isValid())
        return value;
    return withComponent(value, first, withPart(component, rest, part));
}

} // namespace graphics::internal
