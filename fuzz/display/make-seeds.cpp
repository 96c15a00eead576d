// Writes the seed archives of the layer fuzzer: an empty layer, a layer with every archived
// property set, and one with the system font's own name.
//   make-seeds <corpus-dir>
#include "marlockCompanionCommon/display/NumberScrollLayer.h"
#include "marlockCompanionCommon/graphics/SystemFont.h"
#include "marlockCompanionCommon/keychain/KeyedArchiver.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>

namespace {

void write(const QString& path, const std::shared_ptr<NumberScrollLayer>& layer) {
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(platform::KeyedArchiver::archivedData(
            QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(layer)), true));
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    if (argc != 2)
        return 2;
    const QString directory = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(directory);

    write(directory + "/empty", std::make_shared<NumberScrollLayer>());

    auto full = std::make_shared<NumberScrollLayer>();
    full->setFont(graphics::Font("Inter", 20, QFont::Bold));
    full->setTextColor(QColor(10, 20, 30, 200));
    full->setBackgroundColor(QColor(Qt::white));
    full->setAnimationCurve(graphics::MediaTimingFunction::easeInEaseOut());
    full->setAnimationDuration(0.5);
    full->setFrame({1, 2, 100, 30});
    full->setText("12:34 AB");
    write(directory + "/full", full);

    graphics::ScopedSystemFont system({"Inter", ".InterUI"});
    auto systemFont = std::make_shared<NumberScrollLayer>();
    systemFont->setText("1:2");
    write(directory + "/system-font", systemFont);
    return 0;
}
