#pragma once

#include "common/StoredToken.h"

#include <QJsonArray>
#include <QString>

#include <vector>

// The current codes of the stored tokens, as "marlock codes" prints them once or keeps redrawing.
namespace codetable {

struct Row {
    companion::StoredToken token;
    QString code;         // the digits, as computed (no separator)
    double remaining = 0; // TOTP: seconds until the next code, in (0, period]; HOTP: 0
};

// One row per token, every code computed for the same moment `now`.
std::vector<Row> rows(const std::vector<companion::StoredToken>& tokens, double now);

// The rows as text lines: name, code grouped with the separator preference, and the time left
// (with a bar when `bars`; in colour, and red near the end when that preference is on, when
// `ansi`). Lines are cut to `width` columns (0: no limit), so a redraw never wraps.
QStringList lines(const std::vector<Row>& rows, bool bars, bool ansi, int width);

// The rows as JSON: position, id, issuer, account, code, and for TOTP the period and seconds left.
QJsonArray json(const std::vector<Row>& rows);

} // namespace codetable
