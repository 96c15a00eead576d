#include "CodeTable.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include <QJsonObject>

#include <cmath>

namespace codetable {

namespace {

constexpr int barWidth = 20;
// The last seconds of a code, shown in red when the colour preference is on: too short to type.
constexpr double warningSeconds = 5;

bool isTotp(const Row& row) {
    return row.token.record.type == marlockCommon::OTPType::totp;
}

QString timeLeft(const Row& row, bool bars) {
    if (!isTotp(row))
        return QStringLiteral("counter %1").arg(row.token.record.counter);
    const int seconds = static_cast<int>(std::ceil(row.remaining));
    if (!bars)
        return QStringLiteral("%1 s").arg(seconds);
    const int filled = static_cast<int>(std::lround(barWidth * row.remaining / row.token.record.period));
    return QString(filled, QChar(0x2588)) + QString(barWidth - filled, QChar(0x2591)) +
           QStringLiteral(" %1 s").arg(seconds, 2);
}

} // namespace

std::vector<Row> rows(const std::vector<companion::StoredToken>& tokens, double now) {
    std::vector<Row> result;
    for (const auto& token : tokens) {
        Row row{token, {}, 0};
        const auto generator = token.record.toOTPToken();
        try {
            row.code = generator->password(now);
            row.remaining = generator->timeRemaining(now);
        } catch (const marlockCommon::TokenError& error) {
            row.code = QStringLiteral("(%1)").arg(error.message());
        }
        result.push_back(std::move(row));
    }
    return result;
}

QStringList lines(const std::vector<Row>& rows, bool bars, bool ansi, int width) {
    auto* preferences = ViewPreferencesManager::sharedManager();
    const bool warn = ansi && preferences->getChangeColorWhenCodeWillChange();
    qsizetype nameWidth = 0, codeWidth = 0;
    std::vector<QString> names, codes;
    for (const Row& row : rows) {
        names.push_back(row.token.displayName());
        codes.push_back(ViewPreferencesManager::formatCodeWithSeparator(row.code));
        nameWidth = std::max(nameWidth, names.back().size());
        codeWidth = std::max(codeWidth, codes.back().size());
    }
    if (width > 0) {
        // Names give way first: the code and the time left are what the view is for.
        const qsizetype rest = codeWidth + 2 + (bars ? barWidth + 5 : 6) + 2;
        nameWidth = std::min(nameWidth, std::max<qsizetype>(8, width - rest));
    }
    QStringList result;
    for (size_t i = 0; i < rows.size(); ++i) {
        QString name = names[i];
        if (name.size() > nameWidth)
            name = name.left(nameWidth - 1) + QChar(0x2026);
        QString code = codes[i].leftJustified(codeWidth);
        if (warn && isTotp(rows[i]) && rows[i].remaining <= warningSeconds)
            code = QStringLiteral("\x1b[31m") + code + QStringLiteral("\x1b[0m");
        else if (ansi)
            code = QStringLiteral("\x1b[1m") + code + QStringLiteral("\x1b[0m");
        QString line = name.leftJustified(nameWidth) + QStringLiteral("  ") + code + QStringLiteral("  ") +
                       timeLeft(rows[i], bars);
        result << line;
    }
    return result;
}

QJsonArray json(const std::vector<Row>& rows) {
    QJsonArray array;
    int position = 0;
    for (const Row& row : rows) {
        QJsonObject object{{QStringLiteral("position"), ++position},
                           {QStringLiteral("id"), row.token.id},
                           {QStringLiteral("issuer"), row.token.record.issuer},
                           {QStringLiteral("account"), row.token.record.account},
                           {QStringLiteral("code"), row.code}};
        if (isTotp(row)) {
            object.insert(QStringLiteral("period"), row.token.record.period);
            object.insert(QStringLiteral("remaining"), row.remaining);
        } else {
            object.insert(QStringLiteral("counter"), static_cast<qint64>(row.token.record.counter));
        }
        array.append(object);
    }
    return array;
}

} // namespace codetable
