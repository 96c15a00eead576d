#include "gui/StateDump.h"

#include "gui/CodeRow.h"

#include <QJsonDocument>
#include <QSaveFile>

namespace companion::stateDump {

bool enabled() {
    return qEnvironmentVariableIsSet("MARLOCK_STATE_DUMP");
}

void write(const QJsonObject& state) {
    if (!enabled())
        return;
    QSaveFile file(qEnvironmentVariable("MARLOCK_STATE_DUMP"));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(state).toJson());
        (void)file.commit();
    }
}

QJsonArray rows(const QList<CodeRow*>& rows) {
    QJsonArray array;
    for (const CodeRow* row : rows)
        array.append(QJsonObject{
            {QStringLiteral("issuer"), row->token().record.issuer},
            {QStringLiteral("account"), row->token().record.account},
            {QStringLiteral("code"), row->displayedCode()},
            {QStringLiteral("color"), row->codeColor().name()},
            {QStringLiteral("visible"), row->isVisibleTo(row->parentWidget())},
        });
    return array;
}

} // namespace companion::stateDump
