// A second process for the user-defaults tests. It opens the suite named on its command line
// (under the XDG_CONFIG_HOME it inherits) and runs one command:
//
//   write <suite> <prefix> <count>    sets <prefix>0 … <prefix><count-1> to their index, one
//                                     synchronize() after each, printing the index once it has
//                                     returned true; exit status 1 if any failed
//   set <suite> <key> <text>          stores a string and synchronizes
//   leave <suite> <key> <text> <how>  stores a string without synchronizing, then ends: "return"
//                                     returns from main, "exit" calls exit(); "loop" stores from
//                                     another thread, prints "stored" and runs the event loop
//                                     until standard input closes
//   hold <suite>                      takes the suite's lock, prints "locked" and waits (to be
//                                     killed)
//   get <suite> <key>…                prints {key: value} for the keys that have a value, as an
//                                     binary property list on standard output
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/platform/storage/internal/FileLock.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QStringList>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

using platform::UserDefaults;

namespace {

void say(const QByteArray& line) {
    std::fputs((line + '\n').constData(), stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    // Never outlives the test that started it, whatever becomes of that test.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() < 2)
        return 2;
    UserDefaults* defaults = UserDefaults::suiteNamed(args[1]);
    if (!defaults)
        return 2;
    const QString& command = args[0];
    if (command == QLatin1String("write") && args.size() == 4) {
        bool allWritten = true;
        const int count = args[3].toInt();
        for (int i = 0; i < count; ++i) {
            defaults->setInteger(i, args[2] + QString::number(i));
            const bool written = defaults->synchronize();
            if (written)
                say(QByteArray::number(i));
            allWritten = written && allWritten;
        }
        return allWritten ? 0 : 1;
    }
    if (command == QLatin1String("set") && args.size() == 4) {
        defaults->setObject(args[3], args[2]);
        return defaults->synchronize() ? 0 : 1;
    }
    if (command == QLatin1String("leave") && args.size() == 5) {
        const QString& how = args[4];
        if (how == QLatin1String("return")) {
            defaults->setObject(args[3], args[2]);
            return 0;
        }
        if (how == QLatin1String("exit")) {
            defaults->setObject(args[3], args[2]);
            std::exit(0);
        }
        std::thread([&] { defaults->setObject(args[3], args[2]); }).join();
        say("stored");
        QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
            char byte;
            if (::read(STDIN_FILENO, &byte, 1) <= 0)
                app.quit();
        });
        return app.exec();
    }
    if (command == QLatin1String("hold")) {
        platform::internal::FileLock lock(defaults->filePath() + QStringLiteral(".lock"));
        if (!lock.lock(20000))
            return 1;
        say("locked");
        for (;;)
            ::pause();
    }
    if (command == QLatin1String("get")) {
        QVariantMap found;
        for (const QString& key : args.mid(2)) {
            const QVariant value = defaults->objectForKey(key);
            if (value.isValid())
                found.insert(key, value);
        }
        const std::optional<QByteArray> bytes =
            platform::PropertyList::write(found, platform::PropertyList::Format::Binary);
        if (!bytes)
            return 1;
        fwrite(bytes->constData(), 1, static_cast<size_t>(bytes->size()), stdout);
        return 0;
    }
    return 2;
}
