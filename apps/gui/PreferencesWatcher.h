#pragma once

#include <QObject>

#include <memory>
#include <vector>

class PLXNotificationCenter;

namespace companion {

// Tells a window when the shared display preferences change, in this process or any other (the
// companion's settings, the command line): the separator and the colour change are announced
// across processes by the preferences manager. The animation preference is not announced; it is
// read each time a code changes, so a change shows at the next code.
class PreferencesWatcher : public QObject {
    Q_OBJECT
public:
    explicit PreferencesWatcher(QObject* parent = nullptr);
    ~PreferencesWatcher() override;

signals:
    void changed();

private:
    std::shared_ptr<PLXNotificationCenter> center_;
    std::vector<std::shared_ptr<QObject>> observers_;
};

} // namespace companion
