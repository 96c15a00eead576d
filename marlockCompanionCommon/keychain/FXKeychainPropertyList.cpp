#include "marlockCompanionCommon/keychain/FXKeychainPropertyList.h"

namespace {

template <typename Map> Map mapRepresentation(const Map& map) {
    Map result;
    result.reserve(map.size());
    for (auto it = map.constBegin(); it != map.constEnd(); ++it)
        if (std::optional<QVariant> value = FXKeychain_propertyListRepresentation(it.value()))
            result.insert(it.key(), *value);
    return result;
}

} // namespace

std::optional<QVariant> FXKeychain_propertyListRepresentation(const QVariant& object) {
    switch (object.metaType().id()) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return std::nullopt;
    case QMetaType::QVariantList: {
        const QVariantList list = object.toList();
        QVariantList result;
        result.reserve(list.size());
        for (const QVariant& element : list)
            if (std::optional<QVariant> value = FXKeychain_propertyListRepresentation(element))
                result.append(*value);
        return result;
    }
    case QMetaType::QVariantMap: {
        QVariantMap map = object.toMap();
        QVariantMap result;
        for (auto it = map.constBegin(); it != map.constEnd(); ++it)
            if (std::optional<QVariant> value = FXKeychain_propertyListRepresentation(it.value()))
                result.insert(it.key(), *value);
        return result;
    }
    case QMetaType::QVariantHash:
        return mapRepresentation(object.toHash());
    default:
        return object;
    }
}
