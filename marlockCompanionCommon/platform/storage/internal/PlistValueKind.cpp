#include "marlockCompanionCommon/platform/storage/internal/PlistValueKind.h"

#include "marlockCompanionCommon/platform/storage/PropertyList.h"

namespace platform::PropertyList::internal {

Kind kindOf(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::QString:
        return Kind::String;
    case QMetaType::QByteArray:
        return Kind::Data;
    case QMetaType::Bool:
        return Kind::Boolean;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
    case QMetaType::Char:
        return Kind::Integer;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return Kind::UnsignedInteger;
    case QMetaType::Double:
    case QMetaType::Float:
        return Kind::Real;
    case QMetaType::QDateTime:
        return Kind::Date;
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return Kind::Array;
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        return Kind::Dictionary;
    default:
        return value.typeId() == qMetaTypeId<Uid>() ? Kind::Uid : Kind::None;
    }
}

QVariantMap dictionaryOf(const QVariant& value) {
    if (value.typeId() == QMetaType::QVariantMap)
        return value.toMap();
    const QVariantHash hash = value.toHash();
    QVariantMap entries;
    for (auto it = hash.begin(); it != hash.end(); ++it)
        entries.insert(it.key(), it.value());
    return entries;
}

} // namespace platform::PropertyList::internal
