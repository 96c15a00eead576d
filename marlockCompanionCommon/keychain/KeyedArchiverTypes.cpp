#include "marlockCompanionCommon/keychain/KeyedArchiverTypes.h"

namespace platform {

ArchiveException::ArchiveException(QString name, QString reason)
    : name_(std::move(name))
    , reason_(std::move(reason))
    , what_((name_ + QStringLiteral(": ") + reason_).toStdString()) {}

} // namespace platform
