#include "Command.h"
#include "Console.h"
#include "Tokens.h"

#include <QJsonArray>

namespace {

const QString name = QStringLiteral("list");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists the stored tokens, in order, without their keys."));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints JSON for scripts."));
    parser.addOption(json);
    if (const int status = console::parse(parser, name, arguments, 0); status >= 0)
        return status;
    const auto store = tokens::open(name);
    if (!store)
        return console::badInput;
    const auto& all = store->tokens();

    if (parser.isSet(json)) {
        QJsonArray array;
        for (size_t i = 0; i < all.size(); ++i)
            array.append(tokens::toJson(all[i], static_cast<int>(i) + 1));
        console::printJson(array);
        return console::success;
    }
    auto& out = console::out();
    if (all.empty()) {
        out << "No tokens yet: add one with marlock add." << Qt::endl;
        return console::success;
    }
    qsizetype issuerWidth = 6, accountWidth = 7;
    for (const auto& token : all) {
        issuerWidth = std::max(issuerWidth, token.record.issuer.size());
        accountWidth = std::max(accountWidth, token.record.account.size());
    }
    out << QStringLiteral("#").rightJustified(3) << "  "
        << QStringLiteral("Issuer").leftJustified(issuerWidth) << "  "
        << QStringLiteral("Account").leftJustified(accountWidth) << "  Kind\n";
    for (size_t i = 0; i < all.size(); ++i)
        out << QString::number(i + 1).rightJustified(3) << "  "
            << all[i].record.issuer.leftJustified(issuerWidth) << "  "
            << all[i].record.account.leftJustified(accountWidth) << "  " << tokens::kind(all[i].record)
            << '\n';
    out.flush();
    return console::success;
}

} // namespace

Command listCommand() {
    return {name, QStringLiteral("Lists the stored tokens."), run};
}
