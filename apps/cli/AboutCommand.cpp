#include "Command.h"
#include "Console.h"

#include "marlockCompanionCommon/Version.h"
#include "marlockCompanionCommon/links/ProductLinks.h"

namespace {

const QString name = QStringLiteral("about");

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the version and where to find help."));
    if (const int status = console::parse(parser, name, arguments, 0); status >= 0)
        return status;
    printAbout(console::out(), true);
    return console::success;
}

} // namespace

void printAbout(QTextStream& stream, bool allLinks) {
    stream << "marlock " << marlockCompanionCommonVersion() << " - codes of time-based one-time passwords\n";
    if (allLinks) {
        stream << '\n';
        for (const ProductLinks::Link& link : ProductLinks::all())
            stream << (link.title + QLatin1Char(':')).leftJustified(30)
                   << (link.url.scheme() == QLatin1String("mailto") ? link.url.path() : link.url.toString())
                   << '\n';
    } else {
        stream << ProductLinks::webPage().toString() << "  " << ProductLinks::supportAddress() << '\n';
    }
    stream.flush();
}

Command aboutCommand() {
    return {name, QStringLiteral("Shows the version and where to find help."), run};
}
