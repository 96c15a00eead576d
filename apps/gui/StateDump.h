#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>

namespace companion {

class CodeRow;

// What a window shows, written as JSON to the file named by MARLOCK_STATE_DUMP after every
// change of it, so that end-to-end tests (and a curious developer) can see what a person would
// see without screen scraping. Without the variable nothing is written. The file never holds a
// secret; it does hold the codes on screen, like a screenshot.
namespace stateDump {

bool enabled();
// Replaces the file with `state` (atomically: readers never see half of it).
void write(const QJsonObject& state);
// The rows as {issuer, account, code (as displayed), color (#rrggbb)}, in order.
QJsonArray rows(const QList<CodeRow*>& rows);

} // namespace stateDump

} // namespace companion
