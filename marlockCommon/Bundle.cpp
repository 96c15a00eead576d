#include "marlockCommon/Bundle.h"

#include <QFile>
#include <QFileInfo>

#include <mutex>

// Registration of the compiled-in resources happens at load time in a shared library, but not in
// a static one; doing it explicitly, once, works for both.
static void registerResources() {
    Q_INIT_RESOURCE(marlockCommon_resources);
}

namespace marlockCommon {

QString bundleIdentifier() {
    return QStringLiteral("org.marlock.common");
}

std::optional<QString> resourcePath(const QString& name, const QString& type) {
    static std::once_flag registered;
    std::call_once(registered, registerResources);
    // Names are plain file names; anything with a path in it is not one of ours.
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || type.contains(QLatin1Char('/')))
        return std::nullopt;
    QString path = QStringLiteral(":/") + bundleIdentifier() + QLatin1Char('/') + name;
    if (!type.isEmpty())
        path += QLatin1Char('.') + type;
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    return path;
}

std::optional<QByteArray> resourceData(const QString& name, const QString& type) {
    const auto path = resourcePath(name, type);
    if (!path)
        return std::nullopt;
    QFile file(*path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return file.readAll();
}

} // namespace marlockCommon
