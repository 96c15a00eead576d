#pragma once

#include "marlockCommon/TokenRecord.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QCryptographicHash>
#include <QStringList>

namespace synctest {

// `count` records of every kind, each with a secret of its own; `tag` tells one set from another.
inline iCloudManager::TokenRecords sampleRecords(int count, int secretLength = 20, const QString& tag = {}) {
    iCloudManager::TokenRecords records;
    for (int i = 0; i < count; ++i) {
        marlockCommon::TokenRecord record;
        record.type = i % 3 == 2 ? marlockCommon::OTPType::hotp : marlockCommon::OTPType::totp;
        record.issuer = QStringLiteral("Issuer %1 %2").arg(i).arg(tag);
        record.account = QStringLiteral("user%1@example.org").arg(i);
        record.secret = QByteArray(secretLength, static_cast<char>('A' + i % 26));
        record.algorithm = static_cast<marlockCommon::OTPAlgorithm>(i % 3);
        record.digits = 6 + i % 3;
        record.counter = static_cast<quint64>(i) * 7;
        records.append(record);
    }
    return records;
}

// A short text that tells record lists apart, for processes to compare what they hold.
inline QString summary(const std::optional<iCloudManager::TokenRecords>& records) {
    if (!records)
        return QStringLiteral("none");
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const marlockCommon::TokenRecord& r : *records)
        hash.addData((r.issuer + QLatin1Char('\n') + r.account + QLatin1Char('\n')).toUtf8() + r.secret);
    return QStringLiteral("%1:%2")
        .arg(records->size())
        .arg(QString::fromLatin1(hash.result().toHex().left(12)));
}

} // namespace synctest
