#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/timing/DisplayLink.h"

#include <QObject>

#include <functional>
#include <memory>

// Calls a block once per refresh of the primary screen, on the display link's own thread (not
// the main thread): the block must be safe there, and moving work to the main thread is the
// caller's affair.
//
// Set the callback before start() and leave it alone while running: the link reads it without
// a lock. Stop the link before destroying it; destroying a running one still stops and joins
// its thread, so no callback ever reaches a destroyed object.
//
//   OTPDisplayLink link;
//   link.setCallback([&progress] { progress.store(fractionOfPeriod()); });
//   link.start();
//   …
//   link.stop();
class MCC_EXPORT OTPDisplayLink : public QObject {
    Q_OBJECT
public:
    using Callback = std::function<void()>;

    // Creates the display link (stopped) and installs the per-frame call of update().
    explicit OTPDisplayLink(QObject* parent = nullptr);
    ~OTPDisplayLink() override;
    Q_DISABLE_COPY(OTPDisplayLink)

    // Starts and stops the frames; both do nothing without a display link.
    Q_INVOKABLE void start();
    Q_INVOKABLE void stop();
    // Invokes the callback, if there is one, on the calling thread.
    Q_INVOKABLE void update();

    const Callback& callback() const { return callback_; }
    void setCallback(Callback callback) { callback_ = std::move(callback); }

    // The display link this object owns (null when none could be made).
    DisplayLink* displayLink() const { return displayLink_.get(); }
    // Replaces the display link, destroying (and so stopping) the old one. The new one is used
    // as it is: no output callback is installed on it.
    void setDisplayLink(std::unique_ptr<DisplayLink> displayLink) { displayLink_ = std::move(displayLink); }

private:
    void commonInit();

    Callback callback_;
    std::unique_ptr<DisplayLink> displayLink_;
};
