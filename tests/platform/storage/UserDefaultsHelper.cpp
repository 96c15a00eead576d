// A second process for the user-defaults tests. It opens the suite named on its command line
// (under the XDG_CONFIG_HOME it inherits) and runs one command:
//
//   write <suite> <prefix> <count>    sets <prefix>0 … <prefix><count-1> to their index, one
//                                     synchronize() after each; exit status 1 if any failed
//   set <suite> <key> <text>          stores a string and synchronizes
//   get <suite> <key>…                prints {key: value} for the keys that have a value, as an
//                                     binary property list on standard output
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

using platform::UserDefaults;

int main(int argc, char** argv) {
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
            allWritten = defaults->synchronize() && allWritten;
        }
        return allWritten ? 0 : 1;
    }
    if (command == QLatin1String("set") && args.size() == 4) {
        defaults->setObject(args[3], args[2]);
        return defaults->synchronize() ? 0 : 1;
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
