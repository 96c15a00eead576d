#include "Command.h"
#include "Console.h"
#include "Tokens.h"

#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include <QJsonObject>

namespace {

const QString name = QStringLiteral("preferences");

const QString separatorKey = QStringLiteral("separatorString");
const QString changeColorKey = QStringLiteral("changeColorWhenCodeWillChange");
const QString animateKey = QStringLiteral("animateCodeChanges");

QJsonValue value(const QString& key) {
    auto* preferences = ViewPreferencesManager::sharedManager();
    if (key == separatorKey)
        return preferences->getSeparatorString();
    if (key == changeColorKey)
        return preferences->getChangeColorWhenCodeWillChange();
    return preferences->getAnimateCodeChanges();
}

QString text(const QJsonValue& value) {
    if (value.isBool())
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    return QLatin1Char('"') + value.toString() + QLatin1Char('"');
}

std::optional<bool> boolean(const QString& text) {
    const QString lower = text.toLower();
    if (lower == QLatin1String("true") || lower == QLatin1String("yes") || lower == QLatin1String("on") ||
        lower == QLatin1String("1"))
        return true;
    if (lower == QLatin1String("false") || lower == QLatin1String("no") || lower == QLatin1String("off") ||
        lower == QLatin1String("0"))
        return false;
    return std::nullopt;
}

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Shows or changes the display preferences that the companion and the Today panel share:\n"
        "  separatorString                 put between groups of digits (\"\" for none, \" \", \"-\", …)\n"
        "  changeColorWhenCodeWillChange   codes turn red shortly before they change (true/false)\n"
        "  animateCodeChanges              digits roll to the next code (true/false)\n"
        "\n"
        "  marlock preferences                     all three\n"
        "  marlock preferences get <name>          one\n"
        "  marlock preferences set <name> <value>  changes one; running programs follow at once"));
    parser.addPositionalArgument(QStringLiteral("action"), QStringLiteral("get (the default) or set."),
                                 QStringLiteral("[get|set]"));
    parser.addPositionalArgument(QStringLiteral("name"), QStringLiteral("A preference."),
                                 QStringLiteral("[name]"));
    parser.addPositionalArgument(QStringLiteral("value"), QStringLiteral("Its new value (set)."),
                                 QStringLiteral("[value]"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Prints JSON for scripts."));
    parser.addOption(json);
    if (const int status = console::parse(parser, name, arguments, 0, 3); status >= 0)
        return status;
    const QStringList args = parser.positionalArguments();
    const QString action = args.value(0, QStringLiteral("get"));
    const QStringList keys{separatorKey, changeColorKey, animateKey};
    const bool get = action == QLatin1String("get");
    if ((!get && action != QLatin1String("set")) || (get && args.size() > 2) || (!get && args.size() != 3))
        return console::fail(name, QStringLiteral("use \"get [name]\" or \"set <name> <value>\""),
                             console::usageError);
    if (args.size() >= 2 && !keys.contains(args[1]))
        return console::fail(name,
                             QStringLiteral("no preference is called \"%1\"; there are %2")
                                 .arg(args[1], keys.join(QStringLiteral(", "))),
                             console::usageError);

    if (!get) {
        auto* preferences = ViewPreferencesManager::sharedManager();
        if (args[1] == separatorKey) {
            preferences->setSeparatorString(args[2]);
        } else {
            const auto on = boolean(args[2]);
            if (!on)
                return console::fail(name,
                                     QStringLiteral("%1 is true or false, not \"%2\"").arg(args[1], args[2]));
            if (args[1] == changeColorKey)
                preferences->setChangeColorWhenCodeWillChange(*on);
            else
                preferences->setAnimateCodeChanges(*on);
        }
        tokens::flushAnnouncements();
    }

    const QStringList shown = args.size() >= 2 ? QStringList{args[1]} : keys;
    if (parser.isSet(json)) {
        QJsonObject object;
        for (const QString& key : shown)
            object.insert(key, value(key));
        console::printJson(object);
    } else if (get) {
        for (const QString& key : shown)
            console::out() << (shown.size() > 1 ? key + QStringLiteral(" = ") : QString()) << text(value(key))
                           << '\n';
        console::out().flush();
    }
    return console::success;
}

} // namespace

Command preferencesCommand() {
    return {name, QStringLiteral("Shows or changes the shared display preferences."), run};
}
